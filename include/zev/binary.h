// Binary: an owned block of bytes with its length. An empty one has null data and size 0.
//
// A null record raises class 2, memory that runs out class 1; the binary then stays as it was.
#ifndef ZEV_BINARY_H
#define ZEV_BINARY_H

#include "zev/base.h"

ZEV_BEGIN

struct Binary {
    void *data;
    uint64_t size;
};

// Copies; null data makes an empty binary. Init does not release what was in the record.
ZEV_API Binary *zBinaryNew(const void *data, uint64_t size);
ZEV_API void zBinaryFree(Binary *binary);
ZEV_API bool zBinaryInit(Binary *binary, const void *data, uint64_t size);
ZEV_API bool zBinarySet(Binary *binary, const void *data, uint64_t size);
ZEV_API bool zBinaryCopy(Binary *target, const Binary *source);
// Attach takes over a block of malloc's and frees the old one; Deatch gives the block up to the
// caller, who frees it.
ZEV_API bool zBinaryAttach(Binary *binary, void *data, uint64_t size);
ZEV_API void *zBinaryDeatch(Binary *binary);
// Frees the block and empties the record; null is ignored.
ZEV_API void zBinaryCleanup(Binary *binary);

ZEV_END
#endif
