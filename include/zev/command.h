// Command: the interface for a drawing application. It names a working copy by its path and sees
// no repository: for each connected one the library holds the repository and a tree of nodes, one
// a tracked file or directory, with its state. The tree is a picture of the last reload; what
// changes the index leaves it as it was.
//
// A working copy that isn't connected, by exactly the text that connected it, gives the failure
// value, and nothing is raised; otherwise the record holds what the layer below raised. Paths are
// relative to the working copy, with forward slashes; a directory is tracked by a `.gitkeep` in
// it, which hosts don't see: where it stands at the end of a path, it is cut.
//
// Threads: one at a time works with a connection, which the host sees to; several threads may each
// work with their own, and connect and disconnect as they like. Callbacks come on the calling
// thread, and may call back into this family. What takes the ground from under the call that they
// came from, though, does nothing then and is class 7: a Disconnect of its connection, a Reload,
// and what reloads by itself: Checkout without a target, Reset and Build.
#ifndef ZEV_COMMAND_H
#define ZEV_COMMAND_H

#include "zev/base.h"

ZEV_BEGIN

// True goes on. Status is a kind of zev/status.h. The old path is that of a rename; for others it
// is empty or null, or, from LogDiff and Refresh, the path. A directory ends in a slash. Paths are
// lent for the call.
typedef bool (*CommandListing)(int32_t status, const zwchar *old_path, const zwchar *path,
                               void *context);

// Both slots are filled. Entry gets each commit and gives true to go on; stop gives true to end.
typedef struct CommandLog CommandLog;
struct CommandLog {
    bool (*entry)(const CommandLog *log, const Oid *id, const zwchar *author, const Time *time,
                  const zwchar *message);
    bool (*stop)(const CommandLog *log);
};

// ---- Connections

// Connect gives true when the working copy is connected; an existing connection is left as it is.
// Reload makes the tree anew, unless `subpath` names something that isn't in it; what is tracked
// and gone from the disk comes back from HEAD then, or leaves the index if it was only added.
// `lock` takes the index lock for it. A reload that fails leaves an empty tree.
ZEV_API bool zCommandConnect(const zwchar *workdir);
ZEV_API void zCommandDisconnect(const zwchar *workdir);
ZEV_API void zCommandReload(const zwchar *workdir, const zwchar *subpath, bool lock);

// ---- Looking

// The nodes of one directory, null or empty for the top; false for a file or what isn't there.
ZEV_API bool zCommandList(const zwchar *workdir, const zwchar *directory, CommandListing callback,
                          void *context);

// The commits of the branch, or of the one that it follows, newest first; if `file` isn't empty,
// those that changed it under this name, or something below it. Renames are not followed.
ZEV_API bool zCommandLog(const zwchar *workdir, const zwchar *file, const CommandLog *log);

// The files that a commit changed.
ZEV_API void zCommandLogDiff(const zwchar *workdir, const Oid *id, CommandListing callback,
                             void *context);

// What a commit of the given paths would take, in the order of paths. Where a new or moved file
// lies in a directory that is new or moved itself, that is the nearest such one with all its
// changes; above a moved one the next goes in, too. The callback's result is ignored.
ZEV_API bool zCommandChangelist(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                                CommandListing callback, void *context);

// ---- Changing. `host` is told and asked, see zev/notify.h; null for nobody.

// One directory, which may be there; its parent must be. One file or directory, exactly by name.
ZEV_API bool zCommandMkdir(const zwchar *workdir, const zwchar *directory);
ZEV_API bool zCommandAdd(const zwchar *workdir, const zwchar *path);
ZEV_API bool zCommandMove(const zwchar *workdir, const zwchar *from, const zwchar *to);

// Into the trash and out of the index. Empty and null paths are left out.
ZEV_API bool zCommandRm(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                        const Notify *host);

// Exactly the files named; a path that ends in a slash is the keep-file of that directory. Empty
// paths are left out, and without any other everything is meant; none may be null.
ZEV_API bool zCommandRevert(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                            const Notify *host);
ZEV_API bool zCommandCommit(const zwchar *workdir, const zwchar *author, const zwchar *message,
                            uint64_t count, const zwchar *const *paths, const Notify *host);

// With a target: writes a file as a commit holds it there, and changes nothing else. `revision` is
// null for HEAD, the address 1 for its first parent, or an id, looked for along the first parents
// of the current branch's upstream; its tree and the file are fetched where they aren't here.
// Without one: zShellUpdate to a revision, or to the newest for null, and a reload. 0 on success, 1
// on failure, -1 without the commit's tree.
ZEV_API int32_t zCommandCheckout(const zwchar *workdir, const Oid *revision, const zwchar *path,
                                 const zwchar *target, const Notify *host);

// zShellReset to a revision, of one path or of all, and a reload: 0 on success, else 1.
// zShellUpdate of a path, taken by its name, and what lies below it, or of all. Build makes a new
// working copy and connects it; no URL or no path is class 2.
ZEV_API int32_t zCommandReset(const zwchar *workdir, const Oid *revision, const zwchar *path,
                              const Notify *host);
ZEV_API bool zCommandFetch(const zwchar *workdir, const zwchar *path, const Notify *host);
ZEV_API bool zCommandBuild(const zwchar *workdir, const zwchar *url, const Notify *host);

// What the server has that is new, of the given paths. The byte at `stop`, which may be null, is
// the host's to set from another thread; it is read before each call.
ZEV_API void zCommandRefresh(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                             const volatile uint8_t *stop, CommandListing callback, void *context);

// What the user may do with a file, as bits of zev/auth.h, by the rules that the last update
// brought; all of them in a copy without a server. 0 where the rules can't be read.
ZEV_API int32_t zCommandPrivilege(const zwchar *workdir, const zwchar *file);

// ---- Conflicts: see zShellConflict and zShellResolve. A null or empty path stands for all.
ZEV_API ConflictAnalysis *zCommandConflictAnalyze(const zwchar *workdir, const zwchar *path);
ZEV_API bool zCommandConflictResolve(const zwchar *workdir, ConflictAnalysis *analysis);

ZEV_END
#endif
