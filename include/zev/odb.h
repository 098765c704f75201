// Odb: the object database, objects in and out as streams. Failures of libgit2 are raised with its
// code: a missing object is class 3.
#ifndef ZEV_ODB_H
#define ZEV_ODB_H

#include "zev/base.h"

ZEV_BEGIN

ZEV_API Odb *zOdbOpen(Repository *repository);
ZEV_API void zOdbFree(Odb *odb);
ZEV_API Repository *zOdbOwner(const Odb *odb);

// From the object's header: the type code is -1 and the size in bytes 0 on failure.
ZEV_API bool zOdbExists(Odb *odb, const Oid *id);
ZEV_API int32_t zOdbType(Odb *odb, const Oid *id);
ZEV_API uint64_t zOdbSize(Odb *odb, const Oid *id);

// Calls back with the id of every object that there is, whoever names it, with some more than once.
// False ends the walk, which is no failure.
typedef bool (*OdbCallback)(const Oid *id, void *context);
ZEV_API bool zOdbForeach(Odb *odb, OdbCallback visit, void *context);

// Writes an object's content to a stream. It is in memory as a whole for that time.
ZEV_API bool zOdbRead(Odb *odb, const Oid *id, Stream *stream);

// Makes an object of type 1 to 4 of all that the stream still gives, which must be `size` bytes; if
// not, no object is made. Memory stays at one block whatever the size. `out` may be null.
ZEV_API bool zOdbWrite(Oid *out, Odb *odb, int32_t type, uint64_t size, Stream *stream);

ZEV_END
#endif
