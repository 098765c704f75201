// Status: what differs between head, index and work directory, one kind a file.
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
    Z_KIND_MISSING = 11
};

typedef int32_t (*StatusCallback)(const zwchar *path, int32_t kind, void *context);

ZEV_API StatusList *zStatusListBuild(Index *index, PathSpec *spec);
ZEV_API uint64_t zStatusListLength(const StatusList *list);
ZEV_API StatusEntry *zStatusListEntry(const StatusList *list, uint64_t index);
ZEV_API void zStatusListFree(StatusList *list);
ZEV_API StatusEntry *zStatusListLookup(StatusList *list, const zwchar *path);
ZEV_API bool zStatusForeach(Index *index, PathSpec *spec, StatusCallback callback, void *context);
ZEV_API int32_t zStatusFile(Repository *repository, const zwchar *path);
ZEV_API const zwchar *zStatusEntryPath(const StatusEntry *entry);
ZEV_API const zwchar *zStatusEntryFrom(const StatusEntry *entry);
ZEV_API int32_t zStatusEntryStatus(const StatusEntry *entry);
ZEV_API const Oid *zStatusEntryOldId(const StatusEntry *entry);
ZEV_API const Oid *zStatusEntryNewId(const StatusEntry *entry);
ZEV_API int32_t zStatusEntryIndexStatus(const StatusEntry *entry);
ZEV_API int32_t zStatusEntryWorkdirStatus(const StatusEntry *entry);
ZEV_API const zwchar *zStatusName(int32_t kind);

ZEV_END
#endif
