// Variant: a value with its type, owning its texts and bytes. A new value is owned before the old
// one goes, so that a failure changes nothing.
#include "zev/variant.h"

#include "common/failure.hpp"
#include "common/guard.hpp"

#include "zev/binary.h"
#include "zev/str.h"

#include <cstdarg>
#include <cstdlib>

using namespace zev;

namespace {

// The codes of the vector's elements plus one; those below 18 differ in width only.
enum : uint32_t { kNone = 0, kFloat = 10, kDouble = 13, kNarrow = 19, kWide = 20, kBinary = 21 };

uint32_t width(uint32_t type) {
    constexpr uint8_t kWidths[] = {0, 1, 1, 1, 2, 2, 4, 4, 4, 4, 4, 8, 8, 8, 1, 2, 8, 8, 8};
    return type < sizeof kWidths ? kWidths[type] : 0;
}

// What a value owns.
void *owned(Variant &variant) {
    switch (variant.type) {
    case kNarrow:
        return variant.value.narrow;
    case kWide:
        return variant.value.wide;
    case kBinary:
        return variant.value.binary.data;
    default:
        return nullptr;
    }
}

// The caller's value, borrowed.
Variant read_argument(uint32_t type, va_list arguments) {
    Variant variant = {};
    variant.type = type;
    if (type == kFloat)
        variant.value.f32 = static_cast<float>(va_arg(arguments, double));
    else if (type == kDouble)
        variant.value.f64 = va_arg(arguments, double);
    else if (type == kBinary) {
        variant.value.binary.data = va_arg(arguments, void *);
        variant.value.binary.size = va_arg(arguments, uint64_t);
    } else if (type == kNarrow || type == kWide)
        variant.value.pointer = va_arg(arguments, void *);
    else if (width(type) == 8)
        variant.value.u64 = va_arg(arguments, uint64_t);
    else if (width(type) == 4)
        variant.value.u32 = va_arg(arguments, uint32_t);
    else if (width(type) == 2)
        variant.value.u16 = static_cast<uint16_t>(va_arg(arguments, int));
    else if (width(type) == 1)
        variant.value.u8 = static_cast<uint8_t>(va_arg(arguments, int));
    return variant;
}

// Turns a borrowed value into an owned one.
bool take(Variant &variant) {
    if (variant.type == kBinary) {
        const auto borrowed = variant.value.binary;
        Binary copy;
        if (!zBinaryInit(&copy, borrowed.data, borrowed.size)) return false;
        variant.value.binary = {copy.data, copy.size};
        return true;
    }
    if (!owned(variant)) return true;
    if (variant.type == kNarrow)
        variant.value.narrow = zStrdupA(variant.value.narrow);
    else
        variant.value.wide = zStrdupW(variant.value.wide);
    if (!owned(variant)) return fail_memory();
    return true;
}

// Puts a value in place of the old one once it is owned, so that a failure changes nothing.
bool store(Variant *target, Variant value) {
    if (!take(value)) return false;
    free(owned(*target));
    target->type = value.type;
    target->value = value.value;
    return true;
}

} // namespace

bool zVariantInit(Variant *variant) {
    if (!variant) return fail_args();
    *variant = {};
    return true;
}

bool zVariantCleanup(Variant *variant) {
    if (!variant) return fail_args();
    free(owned(*variant));
    *variant = {};
    return true;
}

uint32_t zVariantType(const Variant *variant) {
    if (!variant) return fail_args(), kNone;
    return variant->type;
}

void *zVariantValue(Variant *variant) {
    if (!variant) return fail_args();
    return &variant->value;
}

Variant *zVariantNext(const Variant *variant) {
    if (!variant) return fail_args();
    return variant->next;
}

bool zVariantSet(Variant *variant, uint32_t type, ...) {
    if (!variant) return fail_args();
    if (type > kBinary) return logged(raise_range());
    va_list arguments;
    va_start(arguments, type);
    const Variant value = read_argument(type, arguments);
    va_end(arguments);
    return store(variant, value);
}

bool zVariantCopy(Variant *target, const Variant *source) {
    if (!target || !source) return fail_args();
    return store(target, *source);
}
