// Status: what differs between head, index and work directory, one kind a file.
//
// A spec (null for all) chooses paths and kinds; kinds that it leaves out are not even looked for
// where that saves work. A status of an index held under its lock also writes the times of files
// that were touched but not changed into the index's file, so that no later one reads them again.
#ifndef ZEV_STATUS_H
#define ZEV_STATUS_H

#include "zev/base.h"

ZEV_BEGIN

// Kinds of entries; 0 to 10 are libgit2's delta kinds.
enum {
    Z_KIND_UNCHANGED = 0,
    Z_KIND_ADDED = 1,
    Z_KIND_DELETED = 2,
    Z_KIND_MODIFIED = 3,
    Z_KIND_RENAMED = 4,
    Z_KIND_COPIED = 5,
    Z_KIND_IGNORED = 6,
    Z_KIND_UNTRACKED = 7,
    Z_KIND_TYPECHANGE = 8,
    Z_KIND_UNREADABLE = 9,
    Z_KIND_CONFLICTED = 10,
    Z_KIND_MISSING = 11 // in the index, gone from the disk
};

// A result other than 0 ends the walk. The path is lent for the call.
typedef int32_t (*StatusCallback)(const zwchar *path, int32_t kind, void *context);

// A list in the order of paths, which owns its entries and outlives the index. Null when the
// comparison failed, or, class 3, when nothing is left and the spec asks for a match.
ZEV_API StatusList *zStatusListBuild(Index *index, PathSpec *spec);
ZEV_API uint64_t zStatusListLength(const StatusList *list);
ZEV_API StatusEntry *zStatusListEntry(const StatusList *list, uint64_t index);
ZEV_API void zStatusListFree(StatusList *list);

// By the exact path; a miss gives null and class 3.
ZEV_API StatusEntry *zStatusListLookup(StatusList *list, const zwchar *path);

// The same without a list. True also when the callback ended it.
ZEV_API bool zStatusForeach(Index *index, PathSpec *spec, StatusCallback callback, void *context);

// The kind of one file; -1 with libgit2's error raised, also for a directory.
ZEV_API int32_t zStatusFile(Repository *repository, const zwchar *path);

// Of one entry. From is the old path of a rename between head and index, else the path. Status is
// the kind. The ids are those in head and in the index, all zero where there is none. IndexStatus
// and WorkdirStatus give the kind of one side's change alone; where the other side is the only one
// that changed, 7.
ZEV_API const zwchar *zStatusEntryPath(const StatusEntry *entry);
ZEV_API const zwchar *zStatusEntryFrom(const StatusEntry *entry);
ZEV_API int32_t zStatusEntryStatus(const StatusEntry *entry);
ZEV_API const Oid *zStatusEntryOldId(const StatusEntry *entry);
ZEV_API const Oid *zStatusEntryNewId(const StatusEntry *entry);
ZEV_API int32_t zStatusEntryIndexStatus(const StatusEntry *entry);
ZEV_API int32_t zStatusEntryWorkdirStatus(const StatusEntry *entry);

// A kind's name in the current catalogue.
ZEV_API const zwchar *zStatusName(int32_t kind);

ZEV_END
#endif
