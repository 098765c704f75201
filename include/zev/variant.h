// Variant: a typed value. Its type codes are those of Vector plus one, 0 for none: 1 to 9 and 14,
// 15 small integers, 10 float, 13 double, 11, 12, 16, 17 of 64 bits, 18 a pointer that is not
// owned, 19 narrow and 20 wide text, 21 a Binary; the last three own their copies.
//
// A null variant raises class 2.
#ifndef ZEV_VARIANT_H
#define ZEV_VARIANT_H

#include "zev/base.h"

ZEV_BEGIN

struct Variant {
    uint32_t type;
    union {
        uint8_t u8;
        uint16_t u16;
        uint32_t u32;
        uint64_t u64;
        float f32;
        double f64;
        void *pointer;
        char *narrow;
        zwchar *wide;
        struct {
            void *data;
            uint64_t size;
        } binary;
    } value;
    Variant *next;
};

// Init zeroes; Cleanup releases what the variant owns, then zeroes.
ZEV_API bool zVariantInit(Variant *variant);
ZEV_API bool zVariantCleanup(Variant *variant);
// Value lends the address of the value.
ZEV_API uint32_t zVariantType(const Variant *variant);
ZEV_API void *zVariantValue(Variant *variant);
ZEV_API Variant *zVariantNext(const Variant *variant);
// The value follows in its type's width, two arguments, data and size, for 21. Copies what is to be
// owned and then releases the old value, so that a failure (class 1; class 5 for a type above 21)
// changes nothing. `next` stays.
ZEV_API bool zVariantSet(Variant *variant, uint32_t type, ...);
ZEV_API bool zVariantCopy(Variant *target, const Variant *source);

ZEV_END
#endif
