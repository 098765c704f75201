// The link of a branch to its upstream lies in the repository's configuration:
//   branch.<short name>.remote  the remote's name
//   branch.<short name>.merge   full name of the branch there
#include "zev/branch.h"

#include "objects/store/branch.hpp"
#include "objects/store/config.hpp"
#include "objects/store/object.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/repository.hpp"
#include "zev/oid.h"
#include "zev/reference.h"

#include <new>
#include <string>
#include <string_view>

using namespace zev;

namespace {

constexpr std::u16string_view kPrefixes[] = {u"refs/heads/", u"refs/remotes/", u"refs/tags/",
                                             u"refs/"};

std::string key(const zwchar *branch, const char *word) {
    return "branch." + to_utf8(branch) + "." + word;
}

// A record for a full name, whether there is such a reference or not.
Branch *named(Repository *owner, const zwchar *name, const zwchar *origin, Here at = {}) {
    auto branch = Owned<Branch, zBranchFree>(new (std::nothrow) Branch{owner, {}, {}, {}});
    if (!branch) return fail_memory(at);
    branch->name.reset(zStrdupW(zBranchShorthand(name)));
    branch->merge.reset(zStrdupW(name));
    if (origin) branch->origin.reset(zStrdupW(origin));
    bool whole = branch->name && branch->merge && (branch->origin || !origin);
    return whole ? branch.release() : nullptr;
}

// The first tracking name that the remote's refspecs give a branch. False if none applies.
bool track(git_remote *remote, const std::string &name, std::u16string &found) {
    git_buf mapped = GIT_BUF_INIT;
    Finally dispose([&] { git_buf_dispose(&mapped); });
    for (size_t n = 0; n < git_remote_refspec_count(remote); ++n) {
        if (git_refspec_transform(&mapped, git_remote_get_refspec(remote, n), name.c_str()) < 0)
            continue;
        found = to_wide({mapped.ptr, mapped.size});
        return true;
    }
    return false;
}

// The remote that a branch's configuration names. Null with libgit2's error.
git::Remote remote_of(const Branch *branch) {
    git::Config config;
    git::Remote remote;
    git_repository *handle = branch->owner->handle.get();
    std::string name, merge;
    int code = git_repository_config(out(config), handle);
    if (!code && !(config_text(config.get(), key(branch->name.get(), "remote").c_str(), name) &&
                   config_text(config.get(), key(branch->name.get(), "merge").c_str(), merge)))
        code = GIT_ENOTFOUND;
    if (!code) code = git_remote_lookup(out(remote), handle, name.c_str());
    if (code < 0) fail_git(code);
    return remote;
}

template <class Record> Record *tip(const Branch *branch, Here at = {}) {
    if (!branch) return fail_args(at);
    return by_reference<Record>(branch->owner, branch->merge.get(), at);
}

} // namespace

bool zBranchInit(Repository *repository, const zwchar *branch, const zwchar *remote,
                 const zwchar *merge) try {
    if (!repository || !branch || !remote || !merge) return fail_args();
    return change_config(repository->handle.get(), [&](git_config *file) {
        const int code =
            git_config_set_string(file, key(branch, "remote").c_str(), to_utf8(remote).c_str());
        return code < 0 ? code
                        : git_config_set_string(file, key(branch, "merge").c_str(),
                                                to_utf8(merge).c_str());
    });
} catch (...) {
    return fail_thrown();
}

Branch *zBranchLookup(Repository *repository, const zwchar *name) {
    if (!repository || !name || !*name) return fail_args();
    if (zStrcasesameW(name, u"HEAD")) return zBranchHead(repository);
    return named(repository, name, nullptr);
}

Branch *zBranchHead(Repository *repository) {
    if (!repository) return fail_args();
    auto head = Owned<Reference, zReferenceFree>(zReferenceLookup(repository, u"HEAD"));
    if (!head || zReferenceType(head.get()) != GIT_REFERENCE_SYMBOLIC) return raise_not_found();
    const zwchar *target = zReferenceSymbolic(head.get());
    return target ? named(repository, target, nullptr) : nullptr;
}

Branch *zBranchUpstream(Branch *branch) try {
    if (!branch) return fail_args();
    git::Remote remote = remote_of(branch);
    if (!remote) return nullptr;
    std::u16string upstream;
    if (!track(remote.get(), to_utf8(branch->merge.get()), upstream)) return raise_not_found();
    return named(branch->owner, upstream.c_str(), branch->merge.get());
} catch (...) {
    return fail_thrown();
}

void zBranchFree(Branch *branch) { delete branch; }
Repository *zBranchOwner(const Branch *branch) { return branch ? branch->owner : fail_args(); }
const zwchar *zBranchName(const Branch *branch) {
    return branch ? branch->name.get() : fail_args();
}
const zwchar *zBranchMerge(const Branch *branch) {
    return branch ? branch->merge.get() : fail_args();
}
const zwchar *zBranchOrigin(const Branch *branch) {
    if (!branch) return fail_args();
    return branch->origin ? branch->origin.get() : branch->merge.get();
}

bool zBranchUnborn(const Branch *branch) try {
    if (!branch) return fail_args(), true;
    return reference_there(branch->owner, branch->merge.get()) == false;
} catch (...) {
    return fail_thrown();
}

Reference *zBranchReference(const Branch *branch) {
    if (!branch) return fail_args();
    return zReferenceDwim(branch->owner, branch->merge.get());
}

const Oid *zBranchResolve(Branch *branch) {
    if (!branch) return fail_args();
    auto reference = Owned<Reference, zReferenceFree>(zBranchReference(branch));
    const Oid *id = reference ? zReferenceResolve(reference.get()) : nullptr;
    if (!id) return nullptr;
    branch->id = *id;
    return &branch->id;
}

Commit *zBranchCommit(const Branch *branch) { return tip<Commit>(branch); }
Tree *zBranchTree(const Branch *branch) { return tip<Tree>(branch); }

const zwchar *zBranchShorthand(const zwchar *name) {
    if (!name) return fail_args();
    for (std::u16string_view prefix : kPrefixes)
        if (std::u16string_view(name).starts_with(prefix)) return name + prefix.size();
    return name;
}

bool zBranchPrefixMatched(const Branch *branch, const zwchar *prefix) {
    if (!branch || !prefix) return fail_args();
    return std::u16string_view(branch->merge.get()).starts_with(prefix);
}
bool zBranchIsLocal(const Branch *branch) { return zBranchPrefixMatched(branch, u"refs/heads/"); }
bool zBranchIsRemote(const Branch *branch) {
    return zBranchPrefixMatched(branch, u"refs/remotes/");
}
bool zBranchIsTag(const Branch *branch) { return zBranchPrefixMatched(branch, u"refs/tags/"); }
bool zBranchIsNote(const Branch *branch) { return zBranchPrefixMatched(branch, u"refs/notes/"); }
