// Trash: what the library took out of a working copy, to be listed, searched and given back.
//
// Each item lies in a slot of its own inside the Git directory, a file or a whole tree under its
// name, with a note of where it came from and when. An entry is addressed by its path below the
// trash: "<2 digits>/<38 digits>/<name>", and further into a directory that was taken as a whole;
// either slash, a leading one doesn't count, and without a name the item itself is meant. Digits
// are lower-case hexadecimal.
//
// A bare repository has no trash: everything here is class 2 for it. Nothing is read or changed
// behind a symbolic link.
#ifndef ZEV_TRASH_H
#define ZEV_TRASH_H

#include "zev/base.h"

ZEV_BEGIN

// ---- Entries

// A new one, and one that Init made, is empty: texts are "", never null. Deinit releases what the
// fields hold.
ZEV_API TrashEntry *zTrashEntryNew(void);
ZEV_API TrashEntry *zTrashEntryDup(const TrashEntry *entry);
ZEV_API bool zTrashEntryInit(TrashEntry *entry);
ZEV_API bool zTrashEntryDeinit(TrashEntry *entry);
ZEV_API void zTrashEntryFree(TrashEntry *entry);

// The entry of a path. No entry path is class 2, a missing slot or item class 3, one that begins
// with another name than the slot's item code 9, a damaged note code 104.
ZEV_API TrashEntry *zTrashEntryDiscover(Repository *repository, const zwchar *path);

// The entry of what a directory of the trash holds. A failure raises the standard error.
ZEV_API TrashEntry *zTrashEntryParse(const TrashEntry *parent, const Dirent *item);

// The fields, lent. Orig is the directory that held it, relative to the work directory and empty
// for that itself; DTime when it was taken, in whole seconds, MTime when it was last changed; Type
// the extension without its dot, empty for a directory.
ZEV_API Repository *zTrashEntryOwner(const TrashEntry *entry);
ZEV_API const zwchar *zTrashEntryPath(const TrashEntry *entry);
ZEV_API const zwchar *zTrashEntryName(const TrashEntry *entry);
ZEV_API const zwchar *zTrashEntryOrig(const TrashEntry *entry);
ZEV_API const Time *zTrashEntryDTime(const TrashEntry *entry);
ZEV_API const Time *zTrashEntryMTime(const TrashEntry *entry);
ZEV_API uint64_t zTrashEntrySize(const TrashEntry *entry);
ZEV_API const zwchar *zTrashEntryType(const TrashEntry *entry);
ZEV_API bool zTrashEntryIsFile(const TrashEntry *entry); // a regular one
ZEV_API bool zTrashEntryIsDir(const TrashEntry *entry);

// Whether "orig/name" contains one of the patterns as text, case aside, or is selected by them.
ZEV_API bool zTrashEntryIsMatch(const TrashEntry *entry, PathSpec *spec);

// ---- Search
//
// The search runs on a thread of its own, and results come while it goes on. One thread reads.

// Below a directory of the trash, which is copied, or with null through the whole trash, where
// `recursive` also looks into the directories. A null pattern matches everything.
ZEV_API TrashFind *zTrashFindNew(Repository *repository, const TrashEntry *parent,
                                 const zwchar *pattern, bool recursive);
ZEV_API void zTrashFindFree(TrashFind *find); // stops it first

// First starts anew, dropping earlier results; Next moves on. Both wait until there is a result
// or the search is over, and give true when the reader stands on a result. A thread that can't be
// made is class 12 or 1.
ZEV_API bool zTrashFindFirst(TrashFind *find);
ZEV_API bool zTrashFindNext(TrashFind *find);

// True when the reader stands behind the results so far, as after zTrashFindStop.
ZEV_API bool zTrashFindDone(TrashFind *find);

// The result that the reader stands on, or null; the search's until it is stopped or started anew.
ZEV_API TrashEntry *zTrashFindEntry(TrashFind *find);

// Ends the thread and drops all results.
ZEV_API bool zTrashFindStop(TrashFind *find);

// The thread's body, on a TrashFind; what it calls for each match, taking over the entry whether
// it fails or not.
ZEV_API void zTrashFindProc(void *find);
ZEV_API bool zTrashFindPost(TrashFind *find, TrashEntry *entry);

// ---- In and out

// Moves a path of the work directory into a new slot; across devices it is copied, and removed
// when the copy is safe. A missing path gives true. A failure raises the system error, and the
// path stays where it was. The work directory itself and paths as in zev/workdir.h are class 2.
ZEV_API bool zTrashMoveInto(Repository *repository, const zwchar *path);

// The same for a regular file that is about to be replaced in one step, so that there is no moment
// without one at its path: it stays there until then. Nothing is copied where a file can have two
// names, so it must not be written to in place.
ZEV_API bool zTrashKeep(Repository *repository, const zwchar *path);

// Moves an item into a directory of the work directory, with Back into the one that it came from,
// and stages it. True also when it is no longer in the trash. A file that stands where the
// directory is to be, or an item of that name in it, is asked about through `notify`; without an
// answer nothing changes: false, class 4. An item that is replaced goes to the desktop's trash.
// Failures are told through `notify` too; one after the item moved leaves it in its new place.
// Holds the index lock.
ZEV_API bool zTrashMoveBack(Repository *repository, const TrashEntry *entry, const Notify *notify);
ZEV_API bool zTrashMoveTo(Repository *repository, const TrashEntry *entry, const zwchar *directory,
                          const Notify *notify);

// For good: one item, which may be gone already; items that are at least `days` days old, below 0
// class 2; the whole trash. Purge leaves out what can't be removed.
ZEV_API bool zTrashRemove(Repository *repository, const TrashEntry *entry);
ZEV_API bool zTrashPurge(Repository *repository, int32_t days);
ZEV_API bool zTrashCleanup(Repository *repository);

ZEV_END
#endif
