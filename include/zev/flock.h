// Flock: a lock on one file, held against other threads and processes, that keeps a copy of it
// for undo in a hidden sibling, ".<name>.zlck".
//
// `path` names the locked file, its target, with a directory. A holder that is killed leaves the
// lock file behind: it holds nobody back, and recovery puts the target back from it.
#ifndef ZEV_FLOCK_H
#define ZEV_FLOCK_H

#include "zev/base.h"

ZEV_BEGIN

// Takes the lock; with `save` keeps the target's contents, or that there was none. While another
// one has it, that is tried for half a second, then null and the locked error (class 7).
ZEV_API Flock *zFlockOpen(const zwchar *path, bool save);
// Ends the lock and deletes its file. Null is accepted.
ZEV_API void zFlockClose(Flock *flock);
// Puts the saved contents back, in one step and without free space; the lock stands. Saved was
// nothing, be it that the target was missing or empty or that the lock saves nothing: then the
// target is deleted. False if somebody holds the target (class 7) or it can't be replaced.
// A target that is a link stays one; what it names is put back.
ZEV_API bool zFlockUndo(Flock *flock);
// Puts the target back from a lock file that was left behind, or deletes it if nothing was saved;
// a lock file that was never completed, or is held, changes nothing. Purge deletes the lock file.
// Both give false only for null; what keeps them from their work is raised.
ZEV_API bool zFlockRecover(const zwchar *path);
ZEV_API bool zFlockPurge(const zwchar *path);

ZEV_END
#endif
