// Hash: 64 bits of what records say, to find equal ones by; nothing is kept that depends on it.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace dxf {

class Hash {
  public:
    void add(uint64_t value) {
        state_ = (state_ ^ value) * 0x9E3779B97F4A7C15;
        state_ ^= state_ >> 29;
    }
    void add(std::string_view text) {
        add(text.size());
        for (; text.size() >= 8; text.remove_prefix(8)) {
            uint64_t word;
            memcpy(&word, text.data(), sizeof word);
            add(word);
        }
        uint64_t last = 0;
        if (!text.empty()) memcpy(&last, text.data(), text.size());
        add(last);
    }
    // Nine digits of it, below 1 nine behind the point: numbers that are near are rounded alike,
    // nearly always.
    void add(double number) {
        constexpr int64_t kOne = int64_t{1} << 30;
        int exponent = 0;
        if (std::abs(number) >= 1) number = std::frexp(number, &exponent);
        int64_t digits = std::llround(number * kOne);
        if (std::abs(digits) == kOne) digits /= 2, ++exponent;
        add(static_cast<uint64_t>(digits));
        add(static_cast<uint64_t>(exponent));
    }
    uint64_t value() const { return state_ ^ state_ >> 32; }

  private:
    uint64_t state_ = 0x2545F4914F6CDD1D;
};

} // namespace dxf
