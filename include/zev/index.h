// Index: the staging area of a working copy, its lock, and the operations on it.
#ifndef ZEV_INDEX_H
#define ZEV_INDEX_H

#include "zev/base.h"

ZEV_BEGIN

typedef int32_t (*IndexCallback)(const IndexEntry *entry, void *context);

ZEV_API Index *zIndexAlloc(void *handle, Repository *repository);
ZEV_API Index *zIndexNew(Repository *repository);
ZEV_API Index *zIndexHead(Repository *repository, bool lock);
ZEV_API Index *zIndexByref(Repository *repository, const zwchar *reference);
ZEV_API Index *zIndexBytree(Tree *tree);
ZEV_API Index *zIndexDup(Index *index);
ZEV_API void zIndexFree(Index *index);
ZEV_API bool zIndexClear(Index *index);
ZEV_API bool zIndexRead(Index *index, bool force);
ZEV_API bool zIndexWrite(Index *index);
ZEV_API Repository *zIndexOwner(const Index *index);
ZEV_API const zwchar *zIndexPath(const Index *index);
ZEV_API bool zIndexFindPrefix(uint64_t *position, Index *index, const zwchar *prefix);
ZEV_API bool zIndexWalk(Index *index, IndexCallback callback, void *context);
ZEV_API Tree *zIndexWriteTree(Index *index);
ZEV_API Commit *zIndexWriteCommit(Index *index, const zwchar *reference, const zwchar *author,
                                  const zwchar *message);
ZEV_API StatusList *zIndexStatus(Index *index, PathSpec *spec);
ZEV_API bool zIndexIsStaged(Index *index, const zwchar *path);
ZEV_API Vector *zIndexMatch(Index *index, PathSpec *spec);
ZEV_API bool zIndexHasConflicts(const Index *index);
ZEV_API bool zIndexPathIsConflict(Index *index, const zwchar *path);

ZEV_API IndexEntry *zIndexEntryNew(const IndexEntry *entry);
ZEV_API IndexEntry *zIndexEntryDup(const IndexEntry *entry);
ZEV_API void zIndexEntryFree(IndexEntry *entry);
ZEV_API IndexEntry *zIndexEntryAsZev(void *entry);
ZEV_API void *zIndexEntryAsGit(IndexEntry *entry);
ZEV_API IndexEntry *zIndexEntryStat(Index *index, const zwchar *path);
ZEV_API bool zIndexEntrySetStage(IndexEntry *entry, int32_t stage);
ZEV_API bool zIndexEntryAdd(Index *index, const IndexEntry *entry);
ZEV_API uint64_t zIndexEntryCount(const Index *index);
ZEV_API const IndexEntry *zIndexEntryByindex(Index *index, uint64_t position);
ZEV_API const IndexEntry *zIndexEntryBypath(Index *index, const zwchar *path);
ZEV_API Time *zIndexEntryCTime(Time *out, const IndexEntry *entry);
ZEV_API Time *zIndexEntryMTime(Time *out, const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryDev(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryIno(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryMode(const IndexEntry *entry);
ZEV_API const Oid *zIndexEntryID(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryUID(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryGID(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntrySize(const IndexEntry *entry);
ZEV_API const zwchar *zIndexEntryPath(const IndexEntry *entry);
ZEV_API int32_t zIndexEntryStage(const IndexEntry *entry);
ZEV_API uint16_t zIndexEntryFlags(const IndexEntry *entry);
ZEV_API uint16_t zIndexEntryFlagsEx(const IndexEntry *entry);
ZEV_API bool zIndexEntryIsConflict(const IndexEntry *entry);

ZEV_API bool zIndexAddBypath(Index *index, const zwchar *path);
ZEV_API bool zIndexRemoveEntry(Index *index, const zwchar *path);
ZEV_API bool zIndexRemoveDirectory(Index *index, const zwchar *path);
ZEV_API bool zIndexAdd(Index *index, PathSpec *spec);
ZEV_API bool zIndexRefresh(Index *index, PathSpec *spec);
ZEV_API bool zIndexRename(Index *index, const zwchar *from, const zwchar *to);
ZEV_API Commit *zIndexCommit(Index *index, PathSpec *spec, const zwchar *reference,
                             const zwchar *author, const zwchar *message);
ZEV_API bool zIndexFixupGitkeep(Index *index, const zwchar *path);

ZEV_END
#endif
