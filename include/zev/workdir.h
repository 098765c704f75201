// Workdir: operations on the files of a working copy, below its directory.
//
// Paths are relative to the work directory, with either slash. One that leads out of it by `..`
// or through a symbolic link, or into a `.git`, is class 2: nothing is read, written or removed
// behind a link. A link at the path itself is what an operation is about, not what it points to.
// What takes the last file out of a directory takes the directory along, and so on upward.
#ifndef ZEV_WORKDIR_H
#define ZEV_WORKDIR_H

#include "zev/base.h"

ZEV_BEGIN

// What the system says of a path. A failure raises the standard error with the path.
struct stat;
ZEV_API bool zWorkdirStat(struct stat *out, Repository *repository, const zwchar *path);

// Whether there is anything, a regular file, a directory. Missing raises nothing.
ZEV_API bool zWorkdirPathExists(Repository *repository, const zwchar *path);
ZEV_API bool zWorkdirFileExists(Repository *repository, const zwchar *path);
ZEV_API bool zWorkdirDirExists(Repository *repository, const zwchar *path);

// Takes the write permissions of a file away, or gives the owner read and write; of a directory,
// of all files below it. A missing path gives true.
ZEV_API bool zWorkdirChread(Repository *repository, const zwchar *path, bool readonly);

// Removes a directory that holds no files, with its subdirectories, and each one above it that
// holds none then. True also when it holds files and stays.
ZEV_API bool zWorkdirRmdirR(Repository *repository, const zwchar *path);

// For good: Unlink a file, Remove whatever is there, with all below it. Missing gives true. A
// failure raises the standard error. The work directory itself is refused, class 2, and so is a
// directory that holds the Git directory; below too.
ZEV_API bool zWorkdirUnlink(Repository *repository, const zwchar *path);
ZEV_API bool zWorkdirRemove(Repository *repository, const zwchar *path);

// Into the trash, as zTrashMoveInto.
ZEV_API bool zWorkdirDrop(Repository *repository, const zwchar *path);

// Takes away what keeps a file from standing at a path: what is there, or a regular file in place
// of a directory above it. It goes into the trash if the low byte of `trash` is not 0, else for
// good. Nothing in the way gives true.
ZEV_API bool zWorkdirRemoveObstacle(Repository *repository, const zwchar *path, int32_t trash);

// Moves a file or directory; `from` and `to` are relative to the directory `workdir`. The
// directories above the target are made, and a directory without files in its place goes. Fails
// with the system's error when there is no source, and with 17 when the target stays in the way
// and `replace` is false; what was to make way is then where it was. A path onto itself gives false
// with nothing raised.
ZEV_API bool zWorkdirRename(const zwchar *workdir, const zwchar *from, const zwchar *to,
                            bool replace);

ZEV_END
#endif
