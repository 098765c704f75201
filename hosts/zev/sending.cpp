// What the library's "true" doesn't tell is whether there was anything left to send after the
// update: then the branch has no commit with the user's words.
//
// A send that was cut short leaves "zev-sending" in the Git directory, an empty file, for the next
// one to say so.
#include "sending.hpp"

#include "author.hpp"
#include "front.hpp"
#include "index_change.hpp"
#include "merge_state.hpp"
#include "permissions.hpp"
#include "reception.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "server_note.hpp"
#include "show.hpp"
#include "transfer.hpp"

#include <fstream>

namespace host {

namespace {

// Most users' rules hold nothing back: then no file has to be looked at.
bool may_write_all(const Permissions &permissions) {
    bool is_default = true; // the rest is left to what holds where no rule does
    for (const auto &[path, bits] : permissions.rules()) {
        if (!(bits & Z_PRIVILEGE_WRITE)) return false;
        is_default = is_default && path != "/";
    }
    return !is_default || permissions.fallback() & Z_PRIVILEGE_WRITE;
}

} // namespace

void warn_of_read_only(Host &host, const WorkingCopy &copy, PathSpec *changes,
                       const std::function<bool(const std::string &path)> &concerns) {
    const Permissions permissions(copy);
    if (!permissions.has_rules() || may_write_all(permissions)) return;
    check(zPathSpecSetNotify(changes, nullptr));
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedStatus list(check(zStatusListBuild(index.get(), changes)));
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
        const std::string path = narrow(zStatusEntryPath(zStatusListEntry(list.get(), i)));
        if (concerns && !concerns(path)) continue;
        const Permission permission = permissions.of(path);
        if (permission.bits & Z_PRIVILEGE_WRITE) continue;
        host.out.warn(
            say(permission.rule.empty()
                    ? "%s: you may not change it; the server will refuse it"
                    : "%s: you may not change it, by the rule on %s; the server will refuse it",
                typed_path(path), permission.rule));
    }
}

void warn_of_read_only(Host &host, const WorkingCopy &copy,
                       const std::function<bool(const std::string &path)> &concerns) {
    constexpr uint32_t kLeftOut = Z_SPEC_INDEX_ONLY | Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_RENAMED;
    warn_of_read_only(host, copy, copy.spec({}, kLeftOut, nullptr).get(), concerns);
}

int tell_commit(Host &host, const Commit *made, const std::string &author,
                const std::string &message) {
    const std::string id = hex(zCommitId(made));
    host.out.line(host.out.paint(Colour::yellow, id.substr(0, 8)) + " " + first_line(message));
    host.out.record(Record("commit")
                        .set(u"id", id)
                        .set(u"tree", zCommitTreeId(made))
                        .set(u"author", author)
                        .set(u"message", message));
    return kDone;
}

int fail_conflicts(Host &host) {
    host.out.fail(Failed(kOther, "conflicts remain; \"zev conflicts\" lists them"), kConflicts);
    return kConflicts;
}

void keep_named(const WorkingCopy &copy, Index *index, const Paths &paths) {
    for (const std::string &path : paths) {
        std::string below = copy.relative(path);
        if (!below.empty() && std::filesystem::is_directory(copy.absolute(below)))
            check(zIndexFixupGitkeep(index, wide(below).c_str()));
    }
}

namespace {

// Of what was added, with somebody who is told.
OwnedSpec staged(const Host &host) {
    OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_INDEX_ONLY)));
    check(zPathSpecSetNotify(spec.get(), host.notify));
    return spec;
}

std::optional<Oid> head_of(const WorkingCopy &copy) {
    if (!copy.born()) return {};
    return *zCommitId(copy.head().get());
}

bool is_made(const WorkingCopy &copy, const std::optional<Oid> &before,
             const std::string &message) {
    const std::optional<Oid> now = head_of(copy);
    if (!now || (before && zOidIsEqual(&*before, &*now))) return false;
    return narrow(zCommitMessage(copy.head().get())) == message;
}

// While it lives, progress tells how many files go.
class Dispatch {
  public:
    Dispatch(Host &host, const WorkingCopy &copy)
        : host_(host), note_(own_directory(copy) / "zev-sending") {
        if (std::filesystem::exists(note_)) tell_resumed();
        host_.notify->set_progress_tail([this] {
            const uint64_t files = host_.notify->outcome().listed;
            return files ? ", " + count_of(files, "file") : std::string();
        });
    }
    ~Dispatch() { host_.notify->set_progress_tail(nullptr); }
    Dispatch(const Dispatch &) = delete;
    Dispatch &operator=(const Dispatch &) = delete;

    void finish() {
        std::error_code ignored;
        std::filesystem::remove(note_, ignored);
    }
    // Instead. What was cut short before anything was sent leaves what there was.
    void fail() {
        if (!was_cut_short()) return finish();
        if (host_.notify->outcome().listed) std::ofstream{note_};
    }

  private:
    void tell_resumed() {
        constexpr const char *kText = "the last try to send was cut short; what has reached the "
                                      "server as a whole is not sent again";
        host_.out.line(kText);
        host_.out.record(Record("info").set(u"message", kText));
    }

    Host &host_;
    std::filesystem::path note_;
};

bool refused(const Host &host) { return host.notify->outcome().unauthorized > 0; }

[[noreturn]] void fail_commit(Host &host, const std::string &url) {
    constexpr int kNothing = 2; // the number of what isn't there
    if (zErrorClass() == kNotFound && zErrorCode() == kNothing) {
        host.out.drop_reason();
        throw Failed(kNotFound, "nothing to commit; \"zev add\" files or name them");
    }
    if (!broken() && refused(host))
        throw Failed(kNetwork, 401, "the server refused; you have no right to change these files");
    if (broken()) throw Failed(kCanceled, "cancelled; nothing was committed");
    fail_remote(host, url);
}

} // namespace

int send_commit(Host &host, const WorkingCopy &copy, const Paths &paths, OwnedSpec spec,
                const std::string &given, const std::string &message) {
    const std::string url = origin_of(copy), author = author_of(host, copy, given, log_on(url));
    const bool named = !paths.empty();
    const OwnedRemote remote = open_remote(copy);
    if (named) change_index(copy, [&](Index *index, bool) { keep_named(copy, index, paths); });
    if (!spec) spec = staged(host);
    const std::optional<Unsettled> merge = named ? std::nullopt : unsettled_merge(copy);
    if (merge && !has_conflicts(copy)) tell_merge_ends(host, *merge);
    const std::optional<Oid> before = head_of(copy);
    Dispatch sending(host, copy);
    host.notify->forget();
    if (!zRemoteCommit(remote.get(), spec.get(), wide(author).c_str(), wide(message).c_str())) {
        sending.fail();
        // Behind any other failure they are what could not be put back.
        if (!broken() && zErrorClass() == kOther && has_conflicts(copy)) {
            host.out.drop_reason();
            return fail_conflicts(host);
        }
        fail_commit(host, url);
    }
    sending.finish();
    if (merge) finish_merge(copy);
    const OwnedCommit made = server_commit(copy);
    note_answer(copy, made && !named ? zCommitId(made.get()) : nullptr); // else of some paths only
    if (made && is_made(copy, before, message))
        return tell_commit(host, made.get(), author, message);
    host.out.line("nothing was left to send: the server has these changes already");
    host.out.record(Record("info").set(u"message", "nothing was left to send")); // for programs
    return kDone;
}

} // namespace host
