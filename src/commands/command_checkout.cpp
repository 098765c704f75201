// Older states, and what comes from the server.
#include "commands/adapter.hpp"
#include "common/errno.hpp"
#include "objects/operations/checkspec.hpp"
#include "objects/store/branch.hpp"
#include "objects/store/diff.hpp"
#include "objects/store/object.hpp"
#include "objects/store/odb.hpp"
#include "objects/work/file_mode.hpp"
#include "objects/work/workdir.hpp"
#include "zev/commit.h"
#include "zev/diff.h"
#include "zev/object.h"
#include "zev/odb.h"
#include "zev/oid.h"
#include "zev/remote.h"
#include "zev/shell.h"
#include "zev/tree.h"

#include <cerrno>

using namespace zev;

namespace {

using BlobPtr = Owned<Blob, zBlobFree>;
using RemotePtr = Owned<Remote, zRemoteFree>;
using TreeEntryPtr = Owned<TreeEntry, zTreeEntryFree>;

enum : int32_t { kDone = 0, kFailed = 1, kNoTree = -1 };

// ---- One file of an older state

// Where a host says "the commit before" in place of an id.
bool is_previous(const Oid *revision) { return reinterpret_cast<uintptr_t>(revision) == 1; }

// From the branch that the current one follows, along the first parents.
CommitPtr find_published(Repository *repository, const Oid *id) {
    const BranchPtr branch(zBranchHead(repository));
    const BranchPtr upstream(branch ? zBranchUpstream(branch.get()) : nullptr);
    CommitPtr commit(upstream ? zBranchCommit(upstream.get()) : nullptr);
    while (commit && !zOidIsEqual(zCommitId(commit.get()), id))
        commit.reset(zCommitParent(commit.get()));
    return commit;
}

CommitPtr find_commit(Repository *repository, const Oid *revision) {
    if (revision && !is_previous(revision)) return find_published(repository, revision);
    CommitPtr commit(zCommitHead(repository));
    if (commit && revision) commit.reset(zCommitParent(commit.get()));
    return commit;
}

// It may name a link, which is replaced, but not lie behind one.
bool find_target(WorkPath *out, Repository *repository, const zwchar *target) {
    if (!work_path(out, repository, target)) return false;
    if (out->relative.empty()) return logged(raise_args(target));
    if (out->full.size() < Z_PATH_MAX) return true;
    return fail_os(ENAMETOOLONG, target);
}

// Whether a directory on the way to a path is named and not here.
bool is_way_cut(Tree *tree, std::u16string_view path) {
    const OdbPtr odb(zOdbOpen(zTreeOwner(tree)));
    for (size_t slash = path.find(u'/'); odb && slash != path.npos;
         slash = path.find(u'/', slash + 1)) {
        const std::u16string above(path.substr(0, slash));
        const TreeEntryPtr entry(zTreeEntryBypath(tree, above.c_str()));
        if (!entry || zTreeEntryType(entry.get()) != Z_OBJECT_TREE) return false;
        if (!zOdbExists(odb.get(), zTreeEntryId(entry.get()))) return true;
    }
    return false;
}

// With all directories on the way to the path. What is missing here may lie with the server, if
// there is one. Null where it still is.
TreePtr find_tree(Remote *remote, const Commit *commit, const zwchar *path, const Notify *notify) {
    const auto is_whole = [path](const TreePtr &tree) {
        return tree && !is_way_cut(tree.get(), path);
    };
    TreePtr tree(zCommitTree(commit));
    if (is_whole(tree)) return tree;
    constexpr bool kAllLevels = true;
    const bool fetched = remote && zRemoteDownloadTree(remote, zCommitTreeId(commit), kAllLevels,
                                                       Z_OBJECT_TREE, nullptr, nullptr, notify);
    tree.reset(fetched ? zCommitTree(commit) : nullptr);
    return is_whole(tree) ? std::move(tree) : nullptr;
}

BlobPtr find_blob(Remote *remote, Repository *repository, const Oid *id, const Notify *notify) {
    BlobPtr blob(zBlobByid(repository, id));
    if (!blob && remote && zRemoteDownloadObject(remote, id, notify))
        blob.reset(zBlobByid(repository, id));
    return blob;
}

int32_t export_file(Repository *repository, const Oid *revision, const zwchar *path,
                    const zwchar *target, const Notify *notify) {
    const CommitPtr commit = find_commit(repository, revision);
    if (!commit) return kFailed;
    const RemotePtr remote(zRemoteOpen(repository));
    const TreePtr tree = find_tree(remote.get(), commit.get(), zStrsafeW(path), notify);
    if (!tree) return kNoTree;
    const TreeEntryPtr entry(zTreeEntryBypath(tree.get(), path));
    if (!entry) return kFailed;
    const BlobPtr blob = find_blob(remote.get(), repository, zTreeEntryId(entry.get()), notify);
    WorkPath place;
    if (!blob || !find_target(&place, repository, target)) return kFailed;
    return zBlobExport(blob.get(), place.full.c_str(), u"wb+") ? kDone : kFailed;
}

// ---- To a state of the server

// The pattern is as the spec will take it: a host's path may have wildcards in its name.
CheckSpecPtr check_spec(const Oid *revision, const std::u16string &pattern, const Notify *notify) {
    CheckSpecPtr spec(zCheckSpecNew());
    const bool made = spec && zCheckSpecSetNotify(spec.get(), notify) &&
                      zCheckSpecSetTarget(spec.get(), revision) &&
                      (pattern.empty() || zCheckSpecAddPath(spec.get(), pattern.c_str()));
    return made ? std::move(spec) : nullptr;
}

int32_t reloaded(Connection &connection) {
    reload(connection, false);
    return kDone;
}

// A Notify of which only the question for a stop is filled, by a byte of the host's.
struct StopByte {
    Notify slots{};
    const volatile uint8_t *byte;

    explicit StopByte(const volatile uint8_t *stop) : byte(stop) {
        slots.usrbrk = [](const Notify *notify) {
            return *reinterpret_cast<const StopByte *>(notify)->byte != 0;
        };
    }
    const Notify *get() const { return byte ? &slots : nullptr; }
};

} // namespace

int32_t zCommandCheckout(const zwchar *workdir, const Oid *revision, const zwchar *path,
                         const zwchar *target, const Notify *host) try {
    const bool is_export = target && *target;
    const ConnectionUse connection(workdir,
                                   is_export ? ConnectionUse::shared : ConnectionUse::alone);
    if (!connection) return kFailed;
    Repository *repository = connection.repository();
    const Adapter adapter(host);
    if (is_export) return export_file(repository, revision, path, target, adapter.get());
    if (is_previous(revision)) return fail_args(), kFailed;
    const CheckSpecPtr spec = check_spec(revision, pattern_of(zStrsafeW(path)), adapter.get());
    return spec && zShellUpdate(repository, spec.get()) ? reloaded(*connection) : kFailed;
} catch (...) {
    return fail_thrown(), kFailed;
}

int32_t zCommandReset(const zwchar *workdir, const Oid *revision, const zwchar *path,
                      const Notify *host) try {
    const ConnectionUse connection(workdir, ConnectionUse::alone);
    if (!connection) return kFailed;
    if (is_previous(revision)) return fail_args(), kFailed;
    const Adapter adapter(host);
    const CheckSpecPtr spec = check_spec(revision, pattern_of(zStrsafeW(path)), adapter.get());
    const bool done = spec && zShellReset(connection.repository(), spec.get());
    return done ? reloaded(*connection) : kFailed;
} catch (...) {
    return fail_thrown(), kFailed;
}

// The tree stays as it was.
bool zCommandFetch(const zwchar *workdir, const zwchar *path, const Notify *host) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    const Adapter adapter(host);
    const CheckSpecPtr spec = check_spec(nullptr, pattern_of(zStrsafeW(path)), adapter.get());
    return spec && zShellUpdate(connection.repository(), spec.get());
} catch (...) {
    return fail_thrown();
}

// What was checked out is connected, anew if it was; whether that succeeds is not the question.
bool zCommandBuild(const zwchar *workdir, const zwchar *url, const Notify *host) try {
    if (!zStrvalidW(url) || !zStrvalidW(workdir)) return fail_args();
    if (find_connection(workdir) && !ConnectionUse(workdir, ConnectionUse::alone)) return false;
    const Adapter adapter(host);
    const CheckSpecPtr spec = check_spec(nullptr, {}, adapter.get());
    if (!spec || !zShellCheckout(url, workdir, spec.get())) return false;
    zCommandDisconnect(workdir);
    connect(workdir);
    return true;
} catch (...) {
    return fail_thrown();
}

void zCommandRefresh(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                     const volatile uint8_t *stop, CommandListing callback, void *context) try {
    const ConnectionUse connection(workdir);
    if (!connection) return;
    if (!callback) return static_cast<void>(fail_args());
    const StopByte asked(stop);
    const PathSpecPtr spec = pattern_spec(count, paths, asked.get());
    const DiffListPtr list(spec ? zShellListUpdates(connection.repository(), spec.get(), true)
                                : nullptr);
    if (list) tell_changes(list.get(), callback, context, stop);
} catch (...) {
    fail_thrown();
}

int32_t zCommandPrivilege(const zwchar *workdir, const zwchar *file) {
    const ConnectionUse connection(workdir);
    if (!connection) return 0;
    const AuthdbPtr rules(zAuthdbOpen(connection.repository()));
    return rules ? zAuthdbEntryMode(rules.get(), file) : 0;
}
