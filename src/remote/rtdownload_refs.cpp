// The server's references. An entry of its list:
//   {"type": "ref", "refname": NAME, "reftype": "oid" or "symbolic", "target": ID or NAME, ...}
// What holds: no list moves HEAD or a branch of this copy, or writes outside of refs/.
#include "objects/store/reference.hpp"
#include "remote/rtdownload.hpp"
#include "zev/reference.h"
#include "zev/str.h"

#include <string_view>

namespace zev {

namespace {

bool begins_with(std::u16string_view name, std::u16string_view prefix) {
    if (name.size() < prefix.size()) return false;
    const std::u16string head(name.substr(0, prefix.size()));
    return zStrcasesameW(head.c_str(), std::u16string(prefix).c_str());
}

// Empty parts are taken out of a name before it is written. One of two parts is the user's own, as
// "refs/stash", or would take the place of a directory of references.
bool is_own_branch(std::u16string_view name) {
    constexpr std::u16string_view kAll = u"refs/";
    return begins_with(name, u"refs/heads/") || !begins_with(name, kAll) ||
           name.find(u'/', kAll.size()) == name.npos || name.find(u"//") != name.npos;
}

class Refs {
  public:
    Refs(Remote *remote, const Notify *notify, HeldRef *held)
        : remote_(remote), notify_(notify), held_(held) {}

    bool take(const ListedRef &ref) {
        zwchar name[2 * Z_PATH_MAX];
        if (!map(ref, name)) return raise_not_found(ref.name), fail(ref.name);
        if (!may_write_ref(name)) return true;
        if (ref.symbolic) {
            link(name, ref.target);
            return true;
        }
        if (held_ && held_->name == name) {
            held_->id = ref.id;
            return true;
        }
        if (reference_is_at(remote_->owner, name, ref.id)) return true;
        const ReferencePtr made(zReferenceCreate(remote_->owner, name, &ref.id));
        return made || fail(name);
    }

  private:
    // A name that does not fit would be cut, and be another's.
    bool map(const ListedRef &ref, zwchar (&name)[2 * Z_PATH_MAX]) const {
        return zStrlenW(ref.name) < Z_PATH_MAX &&
               zReferenceXform(name, std::size(name), remote_->handle.get(), ref.name) &&
               zStrlenW(name) < Z_PATH_MAX;
    }

    Failure fail(const zwchar *name) const {
        return notify_error(notify_, u"odb.eFailedToUpdateRef_s", name);
    }

    // One that can't be made is no loss: it has no commits of its own.
    void link(const zwchar *name, const zwchar *target) const {
        const KeptFailure kept;
        if (!is_own_branch(target))
            const ReferencePtr made(zReferenceSymlink(remote_->owner, name, target));
    }

    Remote *remote_;
    const Notify *notify_;
    HeldRef *held_; // null for none
};

} // namespace

bool read_ref(const Json *entry, ListedRef &ref) {
    const zwchar *type = text_in(entry, u"type"), *kind = text_in(entry, u"reftype");
    ref.name = text_in(entry, u"refname");
    ref.target = text_in(entry, u"target");
    if (!type || !zStrsameW(type, u"ref") || !ref.name || !ref.target || !kind) return false;
    ref.symbolic = zStrsameW(kind, u"symbolic");
    return ref.symbolic || id_in(&ref.id, entry, u"target");
}

bool may_write_ref(std::u16string_view name) { return !is_own_branch(name); }

bool reference_is_at(Repository *repository, const zwchar *name, const Oid &id) {
    const Finally clear([] { git_error_clear(); });
    git::Reference found;
    const bool there =
        !git_reference_lookup(out(found), repository->handle.get(), to_utf8(name).c_str());
    const git_oid *target = there ? git_reference_target(found.get()) : nullptr;
    return target && git_oid_equal(target, git::oid(&id));
}

bool download_refs(Remote *remote, const Notify *notify, HeldRef *held) {
    const RemoteCall call{remote, notify, u"net.eFailedToFetchRefs"};
    const JsonGuard body = json_of(call, send(call, make_request(call, Z_HTTP_GET, u"/refs")));
    Json *entries = entries_of(call, body);
    if (!entries) return false;
    Refs refs(remote, notify, held);
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n) {
        ListedRef ref;
        if (!read_ref(zJsonArrayAt(entries, n), ref)) return wrong_data(call);
        if (!refs.take(ref)) return false;
    }
    return true;
}

} // namespace zev

using namespace zev;

bool zRemoteDownloadRefs(Remote *remote, const Notify *notify) try {
    return remote ? download_refs(remote, notify, nullptr) : fail_args();
} catch (...) {
    return fail_thrown();
}
