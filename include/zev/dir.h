// Dir: reading, walking, making and removing directories.
//
// A Dir lists the names as they were when it was opened, "." and ".." first, the others sorted
// without case; it belongs to one thread. Its Dirent is overwritten by the next read. A link is
// no directory, and no function here goes through one that it finds below its path.
#ifndef ZEV_DIR_H
#define ZEV_DIR_H

#include "zev/base.h"

ZEV_BEGIN

// Called with the full path and the entry. Negative ends the whole walk (-2 makes it fail),
// 1 keeps it out of this directory, anything else goes on.
typedef int32_t (*DirCallback)(const zwchar *path, const Dirent *entry, void *context);

// Null raises standard error 9, logged; a failure the system error (class 9).
ZEV_API Dir *zDirOpen(const zwchar *path);
// The next entry, or null at the end with nothing raised.
ZEV_API const Dirent *zDirRead(Dir *dir);
ZEV_API void zDirClose(Dir *dir);

ZEV_API bool zDirentIsDir(const Dirent *entry);
ZEV_API bool zDirentIsFile(const Dirent *entry);
ZEV_API bool zDirentIsDot(const Dirent *entry);
ZEV_API bool zDirentIsDotDot(const Dirent *entry);
ZEV_API bool zDirentIsDotOrDotDot(const Dirent *entry);
ZEV_API const zwchar *zDirentName(const Dirent *entry);

// Visits every entry but "." and "..", a directory before what it holds. False if a directory
// can't be opened or the callback gave -2; a walk that was ended otherwise gives true.
ZEV_API bool zDirForeach(const zwchar *path, bool recursive, DirCallback callback, void *context);

// With `recursive` makes the parents too, and what exists is no error; without it that is one
// (class 10). A failure raises the standard error.
ZEV_API bool zDirMake(const zwchar *path, bool recursive);

// Removes subdirectories with `recursive`, all else with `force`, read-only or not, then the
// directory itself, which fails while something is left. A missing one gives true. The first
// failure ends it and raises the standard error; what was removed is gone. Clear keeps the
// directory and removes all in it. The path itself may be no link.
ZEV_API bool zDirRemove(const zwchar *path, bool recursive, bool force);
ZEV_API bool zDirClear(const zwchar *path);

// True also for a directory that can't be opened.
ZEV_API bool zDirIsEmpty(const zwchar *path);

// 33 characters and a zero that differ from call to call: the name's first character, its length,
// the time in seconds and a counter.
ZEV_API bool zDirSign(const zwchar *name, char *out);

ZEV_END
#endif
