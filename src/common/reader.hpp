// Reader: untrusted bytes in memory. Every read is checked against what is left, and once one
// fails all later ones do, so that a decoder may test once at its end.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

namespace zev {

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

    uint32_t u32() { return number<uint32_t>(); } // big-endian
    uint64_t u64() { return number<uint64_t>(); } // big-endian

    // A count of elements of `size` bytes each that the bytes left can hold.
    uint32_t count(uint64_t size) {
        uint32_t n = u32();
        if (size && n > left() / size) ok_ = false;
        return ok_ ? n : 0;
    }

  private:
    template <class T> T number() {
        T value = 0;
        for (uint8_t byte : take(sizeof(T))) value = static_cast<T>(value << 8 | byte);
        return value;
    }

    std::span<const uint8_t> bytes_;
    uint64_t position_ = 0;
    bool ok_ = true;
};

// Big-endian numbers into bytes.
inline void put_u32(uint8_t *out, uint32_t value) {
    for (int i = 3; i >= 0; --i, value >>= 8) out[i] = static_cast<uint8_t>(value);
}
inline void put_u64(uint8_t *out, uint64_t value) {
    for (int i = 7; i >= 0; --i, value >>= 8) out[i] = static_cast<uint8_t>(value);
}
inline uint64_t get_u64(const uint8_t *in) {
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | in[i];
    return value;
}

} // namespace zev
