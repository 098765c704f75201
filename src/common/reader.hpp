// Numbers in bytes, big-endian; and Reader: untrusted bytes in memory. Every read of it is checked
// against what is left, and once one fails all later ones do, so that a decoder may test once at
// its end.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

namespace zev {

// Big-endian numbers in bytes. Each is one expression, so that compilers make one access and a byte
// swap of it: keys come by the hundred thousand.
constexpr uint64_t load_u64(const uint8_t *in) {
    return uint64_t{in[0]} << 56 | uint64_t{in[1]} << 48 | uint64_t{in[2]} << 40 |
           uint64_t{in[3]} << 32 | uint64_t{in[4]} << 24 | uint64_t{in[5]} << 16 |
           uint64_t{in[6]} << 8 | uint64_t{in[7]};
}
constexpr uint32_t load_u32(const uint8_t *in) {
    return uint32_t{in[0]} << 24 | uint32_t{in[1]} << 16 | uint32_t{in[2]} << 8 | in[3];
}
constexpr void store_u64(uint8_t *out, uint64_t value) {
    out[0] = static_cast<uint8_t>(value >> 56), out[1] = static_cast<uint8_t>(value >> 48);
    out[2] = static_cast<uint8_t>(value >> 40), out[3] = static_cast<uint8_t>(value >> 32);
    out[4] = static_cast<uint8_t>(value >> 24), out[5] = static_cast<uint8_t>(value >> 16);
    out[6] = static_cast<uint8_t>(value >> 8), out[7] = static_cast<uint8_t>(value);
}
constexpr void store_u32(uint8_t *out, uint32_t value) {
    out[0] = static_cast<uint8_t>(value >> 24), out[1] = static_cast<uint8_t>(value >> 16);
    out[2] = static_cast<uint8_t>(value >> 8), out[3] = static_cast<uint8_t>(value);
}

class Reader {
  public:
    explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    uint64_t left() const { return bytes_.size() - position_; }
    uint64_t position() const { return position_; }
    bool ok() const { return ok_; }

    bool seek(uint64_t position) {
        if (position > bytes_.size()) return ok_ = false;
        position_ = position;
        return ok_;
    }

    // `count` bytes in place, or an empty span and a failed reader.
    std::span<const uint8_t> take(uint64_t count) {
        if (!ok_ || count > left()) {
            ok_ = false;
            return {};
        }
        auto part = bytes_.subspan(position_, count);
        position_ += count;
        return part;
    }

    uint32_t u32() {
        const auto bytes = take(4);
        return ok_ ? load_u32(bytes.data()) : 0;
    }
    uint64_t u64() {
        const auto bytes = take(8);
        return ok_ ? load_u64(bytes.data()) : 0;
    }

    // A count of elements of `size` bytes each that the bytes left can hold.
    uint32_t count(uint64_t size) {
        uint32_t n = u32();
        if (size && n > left() / size) ok_ = false;
        return ok_ ? n : 0;
    }

  private:
    std::span<const uint8_t> bytes_;
    uint64_t position_ = 0;
    bool ok_ = true;
};

} // namespace zev
