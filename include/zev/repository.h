// Repository: the handle on one Git repository, bare on a server, with a work tree elsewhere.
//
// It outlives whatever was opened through it, and belongs to one thread at a time. Paths and texts
// that it lends live as long as it does; paths are absolute, with forward slashes, and those of
// directories end in one.
#ifndef ZEV_REPOSITORY_H
#define ZEV_REPOSITORY_H

#include "zev/base.h"

ZEV_BEGIN

// Open gives the repository that lies exactly at the path, Discover the one at `start` or above it.
// `ceilings`, which may be null, are directories between semicolons that the search does not
// leave. Init makes one in an empty or absent directory, anything else is class 2; its HEAD is
// refs/heads/master. Clone copies `url`, with all files unless `bare`.
//
// Every one of them switches core.autocrlf and core.filemode off in the repository's own
// configuration, which is written only where it says otherwise and may be. A repository of another
// user is refused with libgit2's -36; only OpenBare does not ask.
ZEV_API Repository *zRepositoryOpen(const zwchar *path);
ZEV_API Repository *zRepositoryOpenBare(const zwchar *path);
ZEV_API Repository *zRepositoryDiscover(const zwchar *start, const zwchar *ceilings);
ZEV_API Repository *zRepositoryInit(const zwchar *path, bool bare);
ZEV_API Repository *zRepositoryClone(const zwchar *url, const zwchar *path, bool bare);

// Takes over a git_repository, which stays the caller's on failure.
ZEV_API Repository *zRepositoryNew(void *handle);
ZEV_API void zRepositoryFree(Repository *repository);
ZEV_API void zShellFree(Repository *repository); // the same by the shell's name

// Removes a repository with all its files, and the link if the path is one. It is moved into
// .zev-removed beside it first: a removal that is cut short leaves no half of one at the path, and
// a second call, or the next removal beside it, ends it. False, too, where files can't be removed,
// as another user's: they stay there, and the name is gone. No repository at the path is class 3.
ZEV_API bool zRepositoryDestroy(const zwchar *path);

// Git directory, work tree, and `trash` in the Git directory, in that of the main repository for a
// linked worktree. A bare repository has only the
// first; the others are class 2 there.
ZEV_API const zwchar *zRepositoryPath(Repository *repository);
ZEV_API const zwchar *zRepositoryWorkdir(Repository *repository);
ZEV_API const zwchar *zRepositoryTrash(Repository *repository);

// The repository's own identifier, kept as zev.id in its configuration. Where there is none it is
// drawn with `create`, else the result points at 20 zero bytes.
ZEV_API const Oid *zRepositoryId(Repository *repository, bool create);
ZEV_API bool zRepositorySetId(Repository *repository, const Oid *id);

// Owner, name and URL of the project, for a server. They live in the record only; an unset one is
// an empty text.
ZEV_API const zwchar *zRepositoryOwner(Repository *repository);
ZEV_API const zwchar *zRepositoryName(Repository *repository);
ZEV_API const zwchar *zRepositoryUrl(Repository *repository);
ZEV_API bool zRepositorySetOwner(Repository *repository, const zwchar *text);
ZEV_API bool zRepositorySetName(Repository *repository, const zwchar *text);
ZEV_API bool zRepositorySetUrl(Repository *repository, const zwchar *text);

// Where the server's repository is, of which this one is a working copy: a new text for the caller
// to free. Null, with libgit2's error, for one without a server.
ZEV_API zwchar *zRepositoryRemoteUrl(Repository *repository);

ZEV_API bool zRepositoryIsBare(Repository *repository);
ZEV_API bool zRepositoryIsWorktree(Repository *repository);

// The reference that HEAD leads to; null on an unborn branch, one without a commit. HeadUnborn is
// also true when it can't tell, and raises why.
ZEV_API Reference *zRepositoryHead(Repository *repository);
ZEV_API bool zRepositoryHeadUnborn(Repository *repository);

// zIndexHead and zOdbOpen.
ZEV_API Index *zRepositoryIndex(Repository *repository, bool lock);
ZEV_API Odb *zRepositoryOdb(Repository *repository);

// First commit of a new repository from a template's: its directories, by their .gitkeep files, and
// its file AUTHZ, whose copy decides the result. A null argument gives false and raises nothing.
ZEV_API bool zRepositoryInitFrom(Repository *repository, Repository *from);

ZEV_END
#endif
