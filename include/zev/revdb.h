// Revdb: the ready-made records of commits, one file each, in `revisions` of the Git directory.
//
// A record is a copy of what its commit says. It never changes, may be taken away at any time, and
// is made anew by whoever needs it. It is written aside and renamed into place, so that a reader
// finds a whole record or none. A null argument is class 2, logged.
#ifndef ZEV_REVDB_H
#define ZEV_REVDB_H

#include "zev/base.h"

ZEV_BEGIN

// Opening touches no file. The repository is lent.
ZEV_API Revdb *zRevdbOpen(Repository *repository);
ZEV_API void zRevdbFree(Revdb *db);
ZEV_API Repository *zRevdbOwner(const Revdb *db);

// Removes all records of a repository, as zDirRemove.
ZEV_API bool zRevdbDestroy(Repository *repository);

// Whether there is a regular file in the record's place, whatever it holds.
ZEV_API bool zRevdbExists(const Revdb *db, const Oid *id);

// A new revision, or its change list alone. Null with class 3 when there is no record, class 7
// when somebody holds it open without leave to read, class 2, logged, for one that can't be read;
// such a one stays where it is, and zRevListBuild replaces it.
ZEV_API Revision *zRevdbLookup(const Revdb *db, const Oid *id);
ZEV_API DiffList *zRevdbChanges(const Revdb *db, const Oid *id);

// Writes a record unless there is one. The changes of the revision are computed if need be. True
// also when the record could not be written: it will be missed, and made again.
ZEV_API bool zRevdbInsert(Revdb *db, const Oid *id, Revision *revision);

// True also when there was none. Raises the system error (class 9) then, as for a failure.
ZEV_API bool zRevdbRemove(Revdb *db, const Oid *id);

ZEV_END
#endif
