// A digest is stored with drawings, so that what a row gives must never change:
//
//   a = object number, b = its complement
//   each 16 bytes of the value, the last ones filled with zeros, as two little-endian numbers x, y
//     a = fold(a ^ x ^ K0, y ^ K1)
//     b = fold(b ^ y ^ K2, x ^ K3) + b turned left by 29 bits
//   low = fold(a ^ K2, b ^ length ^ K0), high = fold(b ^ K1, a ^ length ^ K3)
//
// fold multiplies two numbers to 128 bits and joins the halves by exclusive or. The two numbers of
// a digest are the sums of those of the rows, modulo 2^64.
#include "zev/digest.h"

#include "common/failure.hpp"

#include <bit>
#include <cstring>

using namespace zev;

namespace {

// The first bits of the fractional parts of pi, made odd.
constexpr uint64_t kPi[] = {0x243F6A8885A308D3, 0x13198A2E03707345, 0xA4093822299F31D1,
                            0x082EFA98EC4E6C89};
constexpr uint64_t kPair = 16;

uint64_t fold(uint64_t a, uint64_t b) {
    __extension__ using Wide128 = unsigned __int128;
    const Wide128 product = static_cast<Wide128>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

uint64_t little_endian(const uint8_t *bytes) {
    uint64_t value;
    memcpy(&value, bytes, sizeof value);
    return std::endian::native == std::endian::little ? value : __builtin_bswap64(value);
}

struct Lanes {
    uint64_t a, b;

    void take(const uint8_t *pair) {
        const uint64_t x = little_endian(pair), y = little_endian(pair + 8);
        a = fold(a ^ x ^ kPi[0], y ^ kPi[1]);
        b = fold(b ^ y ^ kPi[2], x ^ kPi[3]) + std::rotl(b, 29);
    }
};

} // namespace

bool zDrawingDigestAddRow(DrawingDigest *digest, uint64_t object, const void *value,
                          uint64_t length) {
    if (!digest || (!value && length)) return fail_args();
    Lanes lanes{object, ~object};
    auto bytes = static_cast<const uint8_t *>(value);
    uint64_t left = length;
    for (; left >= kPair; bytes += kPair, left -= kPair) lanes.take(bytes);
    if (left) {
        uint8_t last[kPair] = {};
        memcpy(last, bytes, left);
        lanes.take(last);
    }
    digest->low += fold(lanes.a ^ kPi[2], lanes.b ^ length ^ kPi[0]);
    digest->high += fold(lanes.b ^ kPi[1], lanes.a ^ length ^ kPi[3]);
    return true;
}

bool zDrawingDigestAdd(DrawingDigest *digest, const DrawingDigest *other) {
    if (!digest || !other) return fail_args();
    digest->low += other->low;
    digest->high += other->high;
    return true;
}

bool zDrawingDigestSubtract(DrawingDigest *digest, const DrawingDigest *other) {
    if (!digest || !other) return fail_args();
    digest->low -= other->low;
    digest->high -= other->high;
    return true;
}
