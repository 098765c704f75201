// Diff: what changed between two trees, or a tree and an index, as plain records.
#ifndef ZEV_DIFF_H
#define ZEV_DIFF_H

#include "zev/base.h"

ZEV_BEGIN

// Called for each delta and once per comparison of rename detection; true ends with failure.
// `self` is the function itself.
typedef bool (*DiffCancel)(const void *diff, const void *delta, const char *matched, void *self);

ZEV_API DiffList *zDiffTreeToTree(Tree *old_tree, Tree *new_tree, PathSpec *spec,
                                  DiffCancel cancel);
ZEV_API DiffList *zDiffTreeToIndex(Repository *repository, Tree *tree, Index *index, PathSpec *spec,
                                   DiffCancel cancel);
ZEV_API uint64_t zDiffListLength(const DiffList *list);
ZEV_API DiffEntry *zDiffListEntry(const DiffList *list, uint64_t position);
ZEV_API void zDiffListFree(DiffList *list);
ZEV_API DiffEntry *zDiffListLookup(DiffList *list, const zwchar *path);
ZEV_API int32_t zDiffEntryStatus(const DiffEntry *entry);
ZEV_API const zwchar *zDiffEntryNewPath(const DiffEntry *entry);
ZEV_API const zwchar *zDiffEntryOldPath(const DiffEntry *entry);
ZEV_API const Oid *zDiffEntryNewId(const DiffEntry *entry);
ZEV_API const Oid *zDiffEntryOldId(const DiffEntry *entry);
ZEV_API uint64_t zDiffEntryNewSize(const DiffEntry *entry);
ZEV_API uint64_t zDiffEntryOldSize(const DiffEntry *entry);
ZEV_API uint16_t zDiffEntryNewMode(const DiffEntry *entry);
ZEV_API uint16_t zDiffEntryOldMode(const DiffEntry *entry);

ZEV_END
#endif
