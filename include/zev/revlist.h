// RevList: the history from a starting point (RevBase), as far as a set of filters (RevSpec) lets
// it pass, newest first.
//
// The walk follows first parents only; what came in by a merge shows as the merge. It fills the
// database of records (zev/revdb.h) on its way. In a copy that follows a server it asks there for
// commits and records that are not here, in blocks of 1,000. A null argument is class 2, logged,
// unless told otherwise. A RevSpec is used by one thread at a time.
#ifndef ZEV_REVLIST_H
#define ZEV_REVLIST_H

#include "zev/base.h"

ZEV_BEGIN

// ---- RevBase: where a walk starts

// By HEAD (a new record), by the name of a reference, by the id of a commit or of what leads to
// one. Setters copy, and drop what the record held.
enum { Z_REV_BY_HEAD = 0, Z_REV_BY_REF = 1, Z_REV_BY_ID = 2 };

ZEV_API RevBase *zRevBaseNew(void);
ZEV_API void zRevBaseFree(RevBase *base);
ZEV_API bool zRevBaseSetByhead(RevBase *base);
ZEV_API bool zRevBaseSetByref(RevBase *base, const zwchar *reference);
ZEV_API bool zRevBaseSetByid(RevBase *base, const Oid *id);

// The kind, -1 without a record; "HEAD" or the reference, null by id, with nothing raised; the id,
// else null, with nothing raised. The text for people is "HEAD", the reference, or the id's first
// eight digits. All are lent until the record changes.
ZEV_API int32_t zRevBaseType(const RevBase *base);
ZEV_API const zwchar *zRevBaseRef(const RevBase *base);
ZEV_API const Oid *zRevBaseId(const RevBase *base);
ZEV_API const zwchar *zRevBaseStringfy(RevBase *base);

// The id of the commit, lent until the record changes. Null, with libgit2's error, if it names
// none in this repository.
ZEV_API const Oid *zRevBaseResolve(RevBase *base, Repository *repository);

// ---- RevSpec: what to keep

enum {
    Z_REV_LITERAL = 0x1,    // paths are exact names, see zev/pathspec.h
    Z_REV_MUST_MATCH = 0x2, // an empty list is a failure: null, class 3
    Z_REV_NO_RENAMES = 0x4, // a rename is what was deleted and what was added
    Z_REV_STAY = 0x8,       // not on to the upstream of a branch that has one
    Z_REV_LOCAL = 0x10      // only what is in this store: history ends where it does
};

// Reset leaves the state of a new record: from HEAD, everything; the notify stays.
ZEV_API RevSpec *zRevSpecNew(void);
ZEV_API void zRevSpecFree(RevSpec *spec);
ZEV_API bool zRevSpecReset(RevSpec *spec);

// The records inside, lent.
ZEV_API RevBase *zRevSpecBase(RevSpec *spec);
ZEV_API PathSpec *zRevSpecPaths(RevSpec *spec);

// IsOn: all bits are set. Any change of options sets those of the paths anew.
ZEV_API bool zRevSpecSetOptions(RevSpec *spec, uint32_t options);
ZEV_API bool zRevSpecIsOn(const RevSpec *spec, uint32_t bits);
ZEV_API bool zRevSpecSetOn(RevSpec *spec, uint32_t bits);
ZEV_API bool zRevSpecSetOff(RevSpec *spec, uint32_t bits);

// A commit is kept if a change of it has one of the paths, if its author and message match one of
// the included patterns and none of the excluded; without patterns a filter is off. Author and
// message match like paths, case aside: "ann" takes "Ann" and "ann/x", not "annie"; "ann*" all
// three. An empty text is overlooked.
ZEV_API bool zRevSpecAddPath(RevSpec *spec, const zwchar *text);
ZEV_API bool zRevSpecIncludeAuthor(RevSpec *spec, const zwchar *text);
ZEV_API bool zRevSpecExcludeAuthor(RevSpec *spec, const zwchar *text);
ZEV_API bool zRevSpecIncludeMessage(RevSpec *spec, const zwchar *text);
ZEV_API bool zRevSpecExcludeMessage(RevSpec *spec, const zwchar *text);

// So many entries at most, 0 or less for all; from and up to a time, both included, null for
// none. Whom the walk asks whether to stop is lent and may be null.
ZEV_API bool zRevSpecSetLimit(RevSpec *spec, int64_t count);
ZEV_API bool zRevSpecSetSince(RevSpec *spec, const Time *time);
ZEV_API bool zRevSpecSetUntil(RevSpec *spec, const Time *time);
ZEV_API bool zRevSpecSetNotify(RevSpec *spec, const Notify *notify);

// ---- RevList

// A null spec means everything from HEAD. A branch or reference without a commit gives an empty
// list. With Z_REV_LOCAL, or where a branch tracks nothing, no server is asked: history ends at the
// first commit that is not here, and in a copy of a server's project a revision whose trees are not
// here has no changes. Else the server's references come first. Null: HEAD is no branch; a tree on
// the way is missing, or a commit where the walk starts; the server doesn't answer, or has not what
// it was asked for (what zev/remote.h tells); the user stopped it (class 6); the branch is a
// remote's, and there is no "origin" (standard error 129).
ZEV_API RevList *zRevListBuild(Repository *repository, RevSpec *spec);
ZEV_API uint64_t zRevListLength(const RevList *list);
// Lent; an index beyond the last is class 2.
ZEV_API Revision *zRevListEntry(const RevList *list, uint64_t index);
ZEV_API void zRevListFree(RevList *list);

ZEV_END
#endif
