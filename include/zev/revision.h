// Revision: who did what and when in one commit, with the list of its file changes.
//
// A revision outlives the commit that it was made from, not the repository. Texts and lists that
// it lends live as long as it does. A null argument is class 2, logged, unless told otherwise.
#ifndef ZEV_REVISION_H
#define ZEV_REVISION_H

#include "zev/base.h"

ZEV_BEGIN

// A deep copy, with the change list if that is there already. Free accepts null.
ZEV_API Revision *zRevisionDup(const Revision *revision);
ZEV_API void zRevisionFree(Revision *revision);

// The commit's id, its author's name, the whole message, the time of the commit. In author and
// message blanks stand for control characters.
ZEV_API const Oid *zRevisionId(const Revision *revision);
ZEV_API const zwchar *zRevisionAuthor(const Revision *revision);
ZEV_API const zwchar *zRevisionMessage(const Revision *revision);
ZEV_API const Time *zRevisionTime(const Revision *revision);

// The changes beside the first parent, lent. The first call may have to read the commit's record,
// or to compare trees and to write the record. Null when the commit or a tree is missing.
ZEV_API DiffList *zRevisionChanges(Revision *revision);

// The changes that a spec selects, or with a null one all of them, as a new list. A rename that the
// spec leaves out counts as what was added and what was deleted. Null when there are no changes to
// be had, or none passes and the spec asks for a match.
ZEV_API DiffList *zRevisionMatch(Revision *revision, PathSpec *paths);

// What the commit holds at a path, slashes or backslashes between its names: a tree or a blob, the
// root tree for an empty path, as a new object. In a copy that follows a server it is asked for
// what is not here on the way. Null if there is no such thing, or if it can't be had (class 3
// without a server, else what zev/remote.h tells).
ZEV_API Object *zRevisionEntry(const Revision *revision, const zwchar *path);

ZEV_END
#endif
