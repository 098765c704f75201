// Branch: a branch by name, born or not, and its link to an upstream.
//
// The record is a name; the reference behind it may not exist yet, as in every new working copy.
// Names are lent and live as long as the branch.
#ifndef ZEV_BRANCH_H
#define ZEV_BRANCH_H

#include "zev/base.h"

ZEV_BEGIN

// Links a branch, by its short name, to the branch with the full name `merge` of a remote, in the
// repository's configuration: both of its keys, which are on the disk then, or none. False when
// that can't be read or written, or another holds its lock (class 7).
ZEV_API bool zBranchInit(Repository *repository, const zwchar *branch, const zwchar *remote,
                         const zwchar *merge);

// `name` is a full name, which is not looked up, or HEAD in any case. Head is the branch that HEAD
// names; a detached HEAD is class 3.
ZEV_API Branch *zBranchLookup(Repository *repository, const zwchar *name);
ZEV_API Branch *zBranchHead(Repository *repository);

// The branch that tracks this one's counterpart at the remote. Not linked, or not taken in by the
// remote's refspecs, is class 3.
ZEV_API Branch *zBranchUpstream(Branch *branch);
ZEV_API void zBranchFree(Branch *branch);
ZEV_API Repository *zBranchOwner(const Branch *branch);

// Short name, full name, and the full name of the local branch, which is an upstream's origin.
ZEV_API const zwchar *zBranchName(const Branch *branch);
ZEV_API const zwchar *zBranchMerge(const Branch *branch);
ZEV_API const zwchar *zBranchOrigin(const Branch *branch);

// No such reference.
ZEV_API bool zBranchUnborn(const Branch *branch);

// What the reference says now; an unborn branch is class 3. The id lives as long as the branch.
ZEV_API Reference *zBranchReference(const Branch *branch);
ZEV_API const Oid *zBranchResolve(Branch *branch);
ZEV_API Commit *zBranchCommit(const Branch *branch);
ZEV_API Tree *zBranchTree(const Branch *branch);

// Behind refs/heads/, refs/remotes/, refs/tags/ or refs/ in the given text.
ZEV_API const zwchar *zBranchShorthand(const zwchar *name);

// By the full name alone.
ZEV_API bool zBranchPrefixMatched(const Branch *branch, const zwchar *prefix);
ZEV_API bool zBranchIsLocal(const Branch *branch);
ZEV_API bool zBranchIsRemote(const Branch *branch);
ZEV_API bool zBranchIsTag(const Branch *branch);
ZEV_API bool zBranchIsNote(const Branch *branch);

ZEV_END
#endif
