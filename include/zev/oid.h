// Oid: the 20-byte name of an object.
//
// All zero bytes mean no object. As text it is 40 lower-case hexadecimal digits, in its path form
// with a slash behind the second. A null argument is class 2 unless told otherwise.
#ifndef ZEV_OID_H
#define ZEV_OID_H

#include "zev/base.h"

ZEV_BEGIN

ZEV_API Oid *zOidNew(void); // zero
ZEV_API Oid *zOidDup(const Oid *id);
ZEV_API void zOidFree(Oid *id);
ZEV_API const Oid *zOidIdentity(void); // the library's own zero one, never freed
ZEV_API bool zOidZero(Oid *id);

// A new value that no other machine and no other moment gives.
ZEV_API bool zOidRand(Oid *id);

// Null counts as zero; it equals null only, and is ordered by address. The order is that of the
// bytes: -1, 0 or 1.
ZEV_API bool zOidIsZero(const Oid *id);
ZEV_API int32_t zOidCompare(const Oid *a, const Oid *b);
ZEV_API bool zOidIsEqual(const Oid *a, const Oid *b);

ZEV_API bool zOidCopy(Oid *target, const Oid *source); // may be the same
ZEV_API bool zOidFromStr(Oid *id, const zwchar *text); // of 40 digits, else libgit2's error
ZEV_API bool zOidFromRaw(Oid *id, const void *bytes);  // 20 bytes

// Text with its terminator: the full form takes 41 characters, the path form 42, and NFormat the
// first `count` digits, 40 at most.
ZEV_API bool zOidFormat(zwchar *buffer, const Oid *id);
ZEV_API bool zOidNFormat(zwchar *buffer, uint64_t count, const Oid *id);
ZEV_API bool zOidPathFormat(zwchar *buffer, const Oid *id);
ZEV_API bool zOidPathAppend(zwchar *path, const Oid *id); // a buffer of Z_PATH_MAX

// Of bytes in memory: their SHA-1 as they are. Of a file: the name that Git gives its content.
ZEV_API bool zOidFromBuffer(Oid *id, const void *data, uint64_t size);
ZEV_API bool zOidFromFile(Oid *id, const zwchar *path);

ZEV_END
#endif
