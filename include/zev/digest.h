// DrawingDigest: what the rows of a drawing come to, in 16 bytes. Two copies of one project may
// give one key to different rows; whoever keeps the digest of a drawing with it sees at its next
// reading whether the rows are still those that it was saved with.
//
// Digests are sums: their order is of no matter, and those of two versions differ by the rows in
// which these differ. They tell accidents, not forgeries.
#ifndef ZEV_DIGEST_H
#define ZEV_DIGEST_H

#include "zev/base.h"

ZEV_BEGIN

// All zero for no rows; equal ones have equal fields.
typedef struct DrawingDigest {
    uint64_t low, high;
} DrawingDigest;

// Takes a row in, by the object number of its key: the tag doesn't count. The sum and the
// difference of two digests go into the first.
ZEV_API bool zDrawingDigestAddRow(DrawingDigest *digest, uint64_t object, const void *value,
                                  uint64_t length);
ZEV_API bool zDrawingDigestAdd(DrawingDigest *digest, const DrawingDigest *other);
ZEV_API bool zDrawingDigestSubtract(DrawingDigest *digest, const DrawingDigest *other);

ZEV_END
#endif
