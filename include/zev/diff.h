// Diff: what changed between two trees, or a tree and an index, as records that outlive both.
//
// Paths that differ in case only are one path. Without a spec, or with one whose options are 0,
// unchanged files are left out; other options name what is left out in full. A file that moved
// without a change is one renamed entry unless Z_SPEC_NO_RENAMED is set; a moved and changed one
// is a delete and an add.
#ifndef ZEV_DIFF_H
#define ZEV_DIFF_H

#include "zev/base.h"

ZEV_BEGIN

// Called for each delta and once per comparison of rename detection; true ends with failure.
// `self` is the function itself.
typedef bool (*DiffCancel)(const void *diff, const void *delta, const char *matched, void *self);

// One tree may be null for the empty one. Null with libgit2's error raised, also when `cancel`
// said so; with class 3 when nothing differs and the spec asks for a match.
ZEV_API DiffList *zDiffTreeToTree(Tree *old_tree, Tree *new_tree, PathSpec *spec,
                                  DiffCancel cancel);

// At least one of the first three is given: the repository by default is that of the others, the
// index by default the repository's own.
ZEV_API DiffList *zDiffTreeToIndex(Repository *repository, Tree *tree, Index *index, PathSpec *spec,
                                   DiffCancel cancel);

// A position beyond the last gives null and class 2. Look-up is by new path, exactly; a miss
// gives null and class 3.
ZEV_API uint64_t zDiffListLength(const DiffList *list);
ZEV_API DiffEntry *zDiffListEntry(const DiffList *list, uint64_t position);
ZEV_API void zDiffListFree(DiffList *list);
ZEV_API DiffEntry *zDiffListLookup(DiffList *list, const zwchar *path);

// Of one entry: the kind (0 to 10 of zev/status.h), and path, id, size in bytes and mode of both
// sides. Where a side has no file, as the old one of an added entry, the other's is given.
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
