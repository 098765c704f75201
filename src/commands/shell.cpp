// The shell: what a user does to a working copy, one function each. It opens the index under its
// lock, does the work and writes what changed; an operation that failed leaves the file as it was.
// What has a server goes there.
#include "zev/shell.h"

#include "common/error_class.hpp"
#include "common/failure.hpp"
#include "objects/conflict/conflict.hpp"
#include "system/os.hpp"
#include "zev/commit.h"
#include "zev/remote.h"
#include "zev/repository.h"
#include "zev/revlist.h"
#include "zev/status.h"
#include "zev/workdir.h"

#include <cerrno>
#include <string>

using namespace zev;

namespace {

// Under the lock, the index as its file has it now. What an operation that failed left in memory
// goes with the lock; one that changed nothing has nothing to write.
template <class F> bool change(Repository *repository, F operation) {
    const IndexPtr index(zIndexHead(repository, true));
    return index && operation(index.get()) && (!index->dirty || zIndexWrite(index.get()));
}

bool is_in(const zwchar *workdir, const zwchar *path) {
    struct stat status;
    return workdir && os::lstat(std::u16string(workdir).append(path).c_str(), &status);
}

// To look only: where nothing can be written there is no lock, and no need for one.
IndexPtr open_to_look(Repository *repository) {
    IndexPtr index(zIndexHead(repository, true));
    if (!index && zErrorCode() == EROFS) index.reset(zIndexHead(repository, false));
    return index;
}

using RemotePtr = Owned<Remote, zRemoteFree>;

// Of a list of updates: whoever waits for it would rather do without.
constexpr uint64_t kShortTimeout = 500;

} // namespace

Repository *zShellOpen(const zwchar *path) { return zRepositoryOpen(path); }
const zwchar *zShellPath(Repository *repository) { return zRepositoryWorkdir(repository); }

// ---- On the index

bool zShellAdd(Repository *repository, PathSpec *spec) {
    if (!repository || !spec) return fail_args();
    return change(repository, [=](Index *index) { return zIndexAdd(index, spec); });
}

bool zShellRm(Repository *repository, PathSpec *spec) {
    if (!repository || !spec) return fail_args();
    return change(repository, [=](Index *index) { return zIndexRemove(index, spec); });
}

bool zShellMv(Repository *repository, const zwchar *from, const zwchar *to) {
    if (!repository || !from || !to) return fail_args();
    const zwchar *workdir = zRepositoryWorkdir(repository);
    const bool can_move = is_in(workdir, from) && !is_in(workdir, to);
    if (change(repository, [=](Index *index) { return zIndexRename(index, from, to); }))
        return true;
    const KeptFailure kept;
    if (can_move && is_in(workdir, to) && !is_in(workdir, from))
        zWorkdirRename(workdir, to, from, false);
    return false;
}

bool zShellRefresh(Repository *repository, PathSpec *spec) {
    if (!repository || !spec) return fail_args();
    return change(repository, [=](Index *index) { return zIndexRefresh(index, spec); });
}

bool zShellRevert(Repository *repository, PathSpec *spec) {
    if (!repository || !spec) return fail_args();
    return change(repository, [=](Index *index) { return zIndexRevert(index, spec); });
}

// ---- Without a change, or with one that is written by itself

StatusList *zShellStatus(Repository *repository, PathSpec *spec) {
    if (!repository || !spec) return fail_args();
    const IndexPtr index = open_to_look(repository);
    return index ? zStatusListBuild(index.get(), spec) : nullptr;
}

RevList *zShellLog(Repository *repository, RevSpec *spec) {
    if (!repository || !spec) return fail_args();
    return zRevListBuild(repository, spec);
}

ConflictAnalysis *zShellConflict(Repository *repository, PathSpec *spec) {
    if (!repository || !spec) return fail_args();
    const IndexPtr index = open_to_look(repository);
    return index ? zConflictAnalyze(index.get(), spec) : nullptr;
}

bool zShellResolve(Repository *repository, ConflictAnalysis *analysis) {
    if (!repository || !analysis) return fail_args();
    const IndexPtr index(zIndexHead(repository, true));
    if (!index) return false;
    const bool done = zConflictResolve(index.get(), analysis);
    analysis->index = nullptr; // it goes now, the analysis stays with the host
    return done;
}

// ---- Commit, to the server if there is one. The index is written on the way, before the reference
// moves.

bool zShellCommit(Repository *repository, PathSpec *spec, const zwchar *author,
                  const zwchar *message) {
    if (!repository || !author || !message) return fail_args();
    const RemotePtr remote(zRemoteOpen(repository));
    if (remote) return zRemoteCommit(remote.get(), spec, author, message);
    if (zErrorClass() != error_class::kNotFound)
        return false; // what can't be read may name a server
    const IndexPtr index(zIndexHead(repository, true));
    if (!index) return false;
    const Owned<Commit, zCommitFree> commit(
        zIndexCommit(index.get(), spec, u"HEAD", author, message));
    return commit != nullptr;
}

// ---- With the server only

bool zShellUpdate(Repository *repository, CheckSpec *spec) {
    if (!repository || !spec) return fail_args();
    const RemotePtr remote(zRemoteOpen(repository));
    return remote && zRemoteUpdate(remote.get(), spec);
}

bool zShellReset(Repository *repository, CheckSpec *spec) {
    if (!repository || !spec) return fail_args();
    const RemotePtr remote(zRemoteOpen(repository));
    return remote && zRemoteReset(remote.get(), spec);
}

DiffList *zShellListUpdates(Repository *repository, PathSpec *spec, bool refresh) {
    if (!repository || !spec) return fail_args();
    const RemotePtr remote(zRemoteOpen(repository));
    if (!remote || !zRemoteSetTimeout(remote.get(), kShortTimeout)) return nullptr;
    return zRemoteListUpdates(remote.get(), spec, refresh);
}

bool zShellCheckout(const zwchar *url, const zwchar *path, CheckSpec *spec) {
    if (!url || !path) return fail_args();
    return zRemoteCheckout(url, path, spec);
}
