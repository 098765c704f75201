// Commit: making, naming and reading commits. Texts live in the thread's recycle ring; a client may
// hold a part of the history only, so that a commit's tree or parent can be missing, class 3.
#ifndef ZEV_COMMIT_H
#define ZEV_COMMIT_H

#include "zev/base.h"
#include "zev/diff.h"

ZEV_BEGIN

// The callback owns the commit; a result other than 0 ends the walk.
typedef int32_t (*CommitCallback)(Commit *commit, void *context);

// A commit of a tree on a reference, by its full or short name, which then moves to it: the
// reference's tip becomes the only parent, one that does not exist yet gets a root commit. With a
// null reference there is no parent, and nothing moves. `author` is name and address, of author and
// committer alike; a blank one, or one with angle brackets, is class 2.
//
// All that the commit needs is on the disk before the reference moves, and it moves only from where
// it was read: a commit that came in between fails with libgit2's -15. On failure it has not moved.
ZEV_API Commit *zCommitCreate(const zwchar *reference, const zwchar *author, const zwchar *message,
                              Tree *tree);

// The same with further parents behind the reference's tip, for a merge: `count` ids of commits
// that are here, else class 3. One that is a parent already is left out. What follows a history
// follows the first parent alone.
ZEV_API Commit *zCommitCreateWith(const zwchar *reference, const zwchar *author,
                                  const zwchar *message, Tree *tree, const Oid *others,
                                  uint64_t count);

// Byid takes the id of anything that leads to a commit, of a tag too; Byref full and short names.
ZEV_API Commit *zCommitByid(Repository *repository, const Oid *id);
ZEV_API Commit *zCommitByprefix(Repository *repository, const Oid *prefix, uint64_t length);
ZEV_API Commit *zCommitByref(Repository *repository, const zwchar *name);
ZEV_API Commit *zCommitHead(Repository *repository);
ZEV_API void zCommitFree(Commit *commit);
ZEV_API const Oid *zCommitId(const Commit *commit);
ZEV_API Repository *zCommitOwner(const Commit *commit);
ZEV_API const Oid *zCommitTreeId(const Commit *commit);
// A new tree.
ZEV_API Tree *zCommitTree(const Commit *commit);
ZEV_API const zwchar *zCommitAuthor(const Commit *commit);
ZEV_API const zwchar *zCommitMessage(const Commit *commit);

// Whole seconds. Gives `out`.
ZEV_API Time *zCommitTime(Time *out, const Commit *commit);

// The first parent; all of them, a merge having several. A root commit has none, class 3, nor has
// one at which a shallow clone ends.
ZEV_API Commit *zCommitParent(const Commit *commit);
ZEV_API const Oid *zCommitParentId(const Commit *commit);
ZEV_API uint64_t zCommitParentCount(const Commit *commit);
ZEV_API const Oid *zCommitParentIdAt(const Commit *commit, uint64_t n);

// What a commit changed beside its first parent that is there, a root commit beside the empty tree,
// and so one where a shallow clone was cut;
// and what differs between two, either of which may be null for the empty tree. `spec` and
// `cancel` may be null, see zDiffTreeToTree.
ZEV_API DiffList *zCommitChanges(Commit *commit, PathSpec *spec, DiffCancel cancel);
ZEV_API DiffList *zCommitDiff(Commit *old_commit, Commit *new_commit, PathSpec *spec,
                              DiffCancel cancel);

// The commits of refs/heads/master, newest first. No such branch is class 3.
ZEV_API bool zCommitWalk(Repository *repository, CommitCallback callback, void *context);

ZEV_END
#endif
