// Identifiers, lists and the sync of the resources that carry content. What holds: an answer that
// tells of something stored leaves after that is on the disk.
#include "network/rest/repos/content.hpp"

#include "common/error_class.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/error.h"
#include "zev/reference.h"
#include "zev/stream.h"

#include <algorithm>
#include <cerrno>

namespace zev::rest {

HttpResponse *need_id(const Call &call, Oid *id) {
    const zwchar *other = capture(call, u":other");
    if (!other || !*other) return refuse(call, 400, u"srv.eFieldInvalid_s", u"id");
    return parse_id(id, other) ? nullptr : refuse(call, 400, u"srv.eFieldRequired_s", u"id");
}

HttpResponse *read_entries(const Call &call, Tree &body, Json *&entries) {
    if (HttpResponse *refusal = read_json(call, body)) return refusal;
    entries = zJsonPathGet(body.get(), u"query.entries");
    if (entries && zJsonIsArray(entries)) return nullptr;
    entries = nullptr;
    return refuse(call, 400, u"srv.eBadField_s", u"query.entries");
}

PackEntry pack_entry(const Json *entry) {
    PackEntry wanted;
    if (!zJsonIsObject(entry)) return wanted;
    const Json *text = zJsonObjectAt(entry, u"id"), *all = zJsonObjectAt(entry, u"recursive");
    wanted.is_sound = text && zJsonIsString(text) && parse_id(&wanted.id, zJsonGetString(text));
    wanted.recursive = all && zJsonGetBoolean(all);
    return wanted;
}

bool push(Json *array, Tree node) {
    if (!node || !zJsonArrayPush(array, node.get())) return false;
    static_cast<void>(node.release());
    return true;
}

Tree with_id(Tree record, const Oid &id) {
    const bool put = record && zJsonPathSetId(record.get(), u"id", &id);
    return put ? std::move(record) : Tree();
}

bool sync_project(const Call &call) {
    const zwchar *path = zRepositoryPath(call.repository.get());
    return path && (os::sync_tree(path) || fail_os(errno, path));
}

CommitPtr commit_patiently(const std::function<CommitPtr()> &create) {
    constexpr uint32_t kPause = 20; // milliseconds
    CommitPtr made = create();
    for (int n = 0; !made && zErrorClass() == error_class::kLocked && n < 5; ++n) {
        os::sleep(kPause);
        made = create();
    }
    return made;
}

// No text has more units than bytes.
bool copy_can_hold(std::string_view path) {
    const bool fits = path.size() < Z_PATH_MAX || to_wide(path).size() < Z_PATH_MAX;
    return fits && path_has_room(path);
}

// ---- What isn't there, and has to be

// With libgit2's reason, which names the object.
Failure fail_lost() {
    if (zErrorClass() != error_class::kNotFound) return {};
    const std::string reason = to_utf8(zErrorReason());
    git_error_set_str(GIT_ERROR_ODB, reason.c_str());
    return fail_git(GIT_ERROR);
}

Failure fail_lost_at(Repository *repository, const zwchar *reference) {
    if (zErrorClass() != error_class::kNotFound) return {};
    {
        const KeptFailure kept;
        const Owned<Reference, zReferenceFree> found(zReferenceDwim(repository, reference));
        if (!found) return {};
    }
    return fail_lost();
}

bool go_back(CommitPtr &commit) {
    CommitPtr parent(zCommitParent(commit.get()));
    const bool fails = !parent && zCommitParentCount(commit.get()) > 0;
    if (fails) log_raised(kError, {}, kFacilitySrv);
    commit = std::move(parent);
    return !fails;
}

std::optional<Time> query_date(const Call &call, const zwchar *name) {
    const zwchar *text = capture(call, name);
    Time time;
    if (!text || !zTimeParseGlobal(&time, text, kDate)) return {};
    return time;
}

uint64_t bytes_left(Stream *stream) {
    const uint64_t size = zStreamSize(stream);
    const int64_t at = zStreamTell(stream);
    return at > 0 ? size - std::min(size, static_cast<uint64_t>(at)) : size;
}

} // namespace zev::rest
