// History with a server behind it: commits, records and objects that a walk doesn't find here are
// asked for. Without a remote what is here is all there is, and nothing is asked.
#include "objects/history/revision.hpp"
#include "objects/store/object.hpp"
#include "remote/remote.hpp"

#include <algorithm>
#include <string>
#include <string_view>

namespace zev {

namespace {

// Null for a repository that follows no server, with nothing raised.
RemotePtr server_of(Repository *repository) {
    const KeptFailure kept;
    return RemotePtr(zRemoteOpen(repository));
}

// An object of the revision, from here or from the server. Null with the reason raised.
git::Object find(Repository *repository, Remote *remote, const git_oid *id) {
    git::Object object;
    if (remote && !zRemoteDownloadObject(remote, git::oid(id), nullptr)) return object;
    const int code = git_object_lookup(out(object), repository->handle.get(), id, GIT_OBJECT_ANY);
    if (code < 0) fail_git(code);
    return object;
}

// The entry of a name in a tree.
git::Object find_entry(Repository *repository, Remote *remote, const git::Object &tree,
                       const std::string &name) {
    if (git_object_type(tree.get()) != GIT_OBJECT_TREE) return raise_not_found(), git::Object();
    const git_tree_entry *entry =
        git_tree_entry_byname(git::as<git_tree>(tree.get()), name.c_str());
    if (!entry) return raise_not_found(name), git::Object(); // libgit2 gives no reason
    return find(repository, remote, git_tree_entry_id(entry));
}

git::Object find_root(Repository *repository, Remote *remote, const Oid &revision) {
    const git::Object commit = find(repository, remote, git::oid(&revision));
    if (!commit) return git::Object();
    if (git_object_type(commit.get()) != GIT_OBJECT_COMMIT) return raise_not_found(), git::Object();
    return find(repository, remote, git_commit_tree_id(git::as<git_commit>(commit.get())));
}

} // namespace

} // namespace zev

using namespace zev;

RevList *zRevListBuild(Repository *repository, RevSpec *spec) try {
    if (!repository) return fail_args();
    const RemotePtr remote = server_of(repository);
    const HistorySource source{remote.get(), zRemoteDownloadRefs, zRemoteDownloadCommits,
                               zRemoteDownloadRevlist, remote != nullptr};
    return rev_list(repository, spec, source).release();
} catch (...) {
    return fail_thrown();
}

Object *zRevisionEntry(const Revision *revision, const zwchar *path) try {
    if (!revision || !path) return fail_args();
    const RemotePtr remote = server_of(revision->owner);
    git::Object object = find_root(revision->owner, remote.get(), revision->id);
    const std::string names = to_utf8(path);
    constexpr std::string_view kSlashes = "/\\";
    for (size_t at = 0; object && (at = names.find_first_not_of(kSlashes, at)) != names.npos;) {
        const size_t end = std::min(names.find_first_of(kSlashes, at), names.size());
        object = find_entry(revision->owner, remote.get(), object, names.substr(at, end - at));
        at = end;
    }
    return object ? wrap<Object>(std::move(object), revision->owner) : nullptr;
} catch (...) {
    return fail_thrown();
}
