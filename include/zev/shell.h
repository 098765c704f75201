// Shell: what a user does to a working copy, one function each. It opens what the operation needs,
// does it, writes the result back and closes it again; the caller needs a repository and a
// selection of paths only. Here an operation takes its road: on the local index, or to the server.
//
// A null repository, spec, path or text is class 2, logged, before any lock is taken. Otherwise the
// record holds what the layer below raised. What changes the index holds its lock and writes it
// only after a success; a lock that is held elsewhere is class 7.
#ifndef ZEV_SHELL_H
#define ZEV_SHELL_H

#include "zev/base.h"

ZEV_BEGIN

// A shell is a repository: these are zRepositoryOpen, zRepositoryWorkdir and zRepositoryFree.
ZEV_API Repository *zShellOpen(const zwchar *path);
ZEV_API const zwchar *zShellPath(Repository *repository);
ZEV_API void zShellFree(Repository *repository);

// zIndexAdd, zIndexRemove, zIndexRename, zIndexRefresh, zIndexRevert.
ZEV_API bool zShellAdd(Repository *repository, PathSpec *spec);
ZEV_API bool zShellRm(Repository *repository, PathSpec *spec);
ZEV_API bool zShellMv(Repository *repository, const zwchar *from, const zwchar *to);
ZEV_API bool zShellRefresh(Repository *repository, PathSpec *spec);
ZEV_API bool zShellRevert(Repository *repository, PathSpec *spec);

// zStatusListBuild, zRevListBuild: new lists.
ZEV_API StatusList *zShellStatus(Repository *repository, PathSpec *spec);
ZEV_API RevList *zShellLog(Repository *repository, RevSpec *spec);

// zConflictAnalyze and zConflictResolve. The lock is let go in between, while the user decides.
ZEV_API ConflictAnalysis *zShellConflict(Repository *repository, PathSpec *spec);
ZEV_API bool zShellResolve(Repository *repository, ConflictAnalysis *analysis);

// zRemoteCommit where there is a server, the remote "origin"; else zIndexCommit onto HEAD. It is of
// the index, or of what a spec (null for none) selects.
ZEV_API bool zShellCommit(Repository *repository, PathSpec *spec, const zwchar *author,
                          const zwchar *message);

// Only with the server, see zev/remote.h: a working copy without one fails with libgit2's error of
// the look-up. ListUpdates gives a new list, and waits half a second only for a server that is
// silent; without `refresh` it asks none. Checkout makes a new working copy.
ZEV_API bool zShellUpdate(Repository *repository, CheckSpec *spec);
ZEV_API bool zShellReset(Repository *repository, CheckSpec *spec);
ZEV_API DiffList *zShellListUpdates(Repository *repository, PathSpec *spec, bool refresh);
ZEV_API bool zShellCheckout(const zwchar *url, const zwchar *path, CheckSpec *spec);

ZEV_END
#endif
