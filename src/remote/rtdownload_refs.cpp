// The server's references. An entry of its list:
//   {"type": "ref", "refname": NAME, "reftype": "oid" or "symbolic", "target": ID or NAME, ...}
// What holds: no list moves HEAD, a branch or a note of this copy, or writes outside of refs/. What
// the server lists no more stays, unless it stands in the way of what it lists now: "a" can't be
// where "a/b" is.
#include "objects/store/branch.hpp"
#include "objects/store/reference.hpp"
#include "remote/rtdownload.hpp"
#include "zev/reference.h"
#include "zev/str.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

namespace zev {

namespace {

constexpr std::u16string_view kTags = u"refs/tags";

bool begins_with(std::u16string_view name, std::u16string_view prefix) {
    if (name.size() < prefix.size()) return false;
    const std::u16string head(name.substr(0, prefix.size()));
    return zStrcasesameW(head.c_str(), std::u16string(prefix).c_str());
}

// Empty parts are taken out of a name before it is written. One of two parts is the user's own, as
// "refs/stash", or would take the place of a directory of references. Below refs/zev/ is what this
// copy noted of the server, and what a checkout of its own stands on.
bool is_own_branch(std::u16string_view name) {
    constexpr std::u16string_view kAll = u"refs/";
    return begins_with(name, u"refs/heads/") || begins_with(name, u"refs/zev/") ||
           !begins_with(name, kAll) || name.find(u'/', kAll.size()) == name.npos ||
           name.find(u"//") != name.npos;
}

bool is_above(std::u16string_view above, std::u16string_view name) {
    return name.size() > above.size() && name.starts_with(above) && name[above.size()] == u'/';
}

std::u16string tracked_by_head(Repository *repository) {
    const KeptFailure kept;
    const BranchPtr head(zBranchHead(repository));
    const BranchPtr upstream(head ? zBranchUpstream(head.get()) : nullptr);
    return upstream ? zBranchMerge(upstream.get()) : u"";
}

class Refs {
  public:
    Refs(Remote *remote, const Notify *notify, HeldRef *held, const Json *entries)
        : remote_(remote), notify_(notify), held_(held), entries_(entries) {}

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
        ReferencePtr made(zReferenceCreate(remote_->owner, name, &ref.id));
        if (made) return true;
        const Way way = clear_way(name);
        if (way == Way::cleared) made.reset(zReferenceCreate(remote_->owner, name, &ref.id));
        return made || way == Way::held || fail(name);
    }

  private:
    // A name that does not fit would be cut, and be another's.
    bool map(const ListedRef &ref, zwchar (&name)[2 * Z_PATH_MAX]) const {
        return zStrlenW(ref.name) < Z_PATH_MAX &&
               zReferenceXform(name, std::size(name), remote_->handle.get(), ref.name) &&
               zStrlenW(name) < Z_PATH_MAX;
    }

    // What stood on the server where a new name is to stand has no commits of its own here, and
    // goes. But the one that this copy follows stays, locked by whoever holds it, and so does a tag
    // that may be the user's: then the new name, which nobody follows here, is left out.
    enum class Way { blocked, held, cleared };
    Way clear_way(const std::u16string &name) {
        const KeptFailure kept;
        const std::u16string followed = held_ ? held_->name : tracked_by_head(remote_->owner);
        Way way = Way::blocked;
        for (const std::u16string &other : in_way_of(name)) {
            if (is_listed(other)) return Way::blocked;
            if (other == followed) return Way::held;
            const ReferencePtr old(zReferenceLookup(remote_->owner, other.c_str()));
            if (old && is_above(kTags, other) && leads_alone(old.get())) return Way::held;
            if (!old || !zReferenceDelete(old.get())) return Way::blocked;
            way = Way::cleared;
        }
        return way;
    }

    // To what is here, and is no commit on a branch of the server's as far as that can be seen: the
    // user himself may have marked it.
    bool leads_alone(const Reference *tag) const {
        const Finally clear([] { git_error_clear(); });
        git_repository *git = remote_->owner->handle.get();
        git::Object commit;
        const int code = git_reference_peel(out(commit), tag->handle.get(), GIT_OBJECT_COMMIT);
        if (code) return code != GIT_ENOTFOUND;
        const git_oid *id = git_object_id(commit.get());
        const std::vector<git_oid> tips = tracked_tips();
        const auto is_it = [&](const git_oid &tip) { return git_oid_equal(&tip, id); };
        return std::ranges::none_of(tips, is_it) &&
               git_graph_reachable_from_any(git, id, tips.data(), tips.size()) != 1;
    }

    std::vector<git_oid> tracked_tips() const {
        struct Search {
            std::u16string tracking;
            std::vector<git_oid> found{};
        } search{u"refs/remotes/" + std::u16string(remote_->name.get())};
        const auto look = [](Reference *reference, void *context) {
            auto &self = *static_cast<Search *>(context);
            const git_oid *id = git_reference_target(reference->handle.get());
            if (id && is_above(self.tracking, zReferenceName(reference))) self.found.push_back(*id);
            return true;
        };
        zReferenceForeach(remote_->owner, look, &search);
        return std::move(search.found);
    }

    // Of those that track this server, and of tags.
    std::vector<std::u16string> in_way_of(const std::u16string &name) const {
        struct Search {
            std::u16string name, tracking;
            std::vector<std::u16string> found{};
        } search{name, u"refs/remotes/" + std::u16string(remote_->name.get())};
        const auto look = [](Reference *reference, void *context) {
            auto &self = *static_cast<Search *>(context);
            const std::u16string other = zReferenceName(reference);
            if ((is_above(self.tracking, other) || is_above(kTags, other)) &&
                (is_above(other, self.name) || is_above(self.name, other)))
                self.found.push_back(other);
            return true;
        };
        zReferenceForeach(remote_->owner, look, &search);
        return std::move(search.found);
    }

    // The list is looked through once, when first something is in the way.
    bool is_listed(const std::u16string &name) {
        zwchar own[2 * Z_PATH_MAX];
        for (; looked_ < zJsonArraySize(entries_); ++looked_) {
            ListedRef ref;
            if (read_ref(zJsonArrayAt(entries_, looked_), ref) && map(ref, own))
                listed_.insert(own);
        }
        return listed_.contains(name);
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
    HeldRef *held_;       // null for none
    const Json *entries_; // of the list
    uint64_t looked_ = 0; // of them, for
    std::set<std::u16string> listed_{};
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
    Refs refs(remote, notify, held, entries);
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
