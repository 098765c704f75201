// Folding, lowering and uppering of single 16-bit units by tables that the compiler lays out.
#include "common/fold.hpp"

#include <algorithm>
#include <array>

namespace zev {
namespace {

// Units from `first` to `last` in steps that lie `delta` away from what they map to.
struct Range {
    zwchar first, last;
    uint8_t step;
    int32_t delta;
};

#include "common/fold_table.inc"

using Page = std::array<uint16_t, 256>;

template <size_t count> constexpr size_t page_count(const Range (&ranges)[count]) {
    std::array<bool, 256> used = {};
    for (const Range &range : ranges)
        for (uint32_t unit = range.first; unit <= range.last; unit += range.step)
            used[unit >> 8] = true;
    return 1 + static_cast<size_t>(std::count(used.begin(), used.end(), true));
}

// The ranges laid out by the compiler: for each high byte a page of distances, modulo 2^16. Page
// 0 moves nothing and serves all high bytes that no range touches.
template <size_t pages> struct Mapping {
    std::array<uint8_t, 256> page = {};
    std::array<Page, pages> distances = {};

    template <size_t count> consteval explicit Mapping(const Range (&ranges)[count]) {
        uint8_t next = 1;
        for (const Range &range : ranges) {
            for (uint32_t unit = range.first; unit <= range.last; unit += range.step) {
                if (!page[unit >> 8]) page[unit >> 8] = next++;
                distances[page[unit >> 8]][unit & 0xFF] = static_cast<uint16_t>(range.delta);
            }
        }
    }

    zwchar operator()(zwchar unit) const {
        return static_cast<zwchar>(unit + distances[page[unit >> 8]][unit & 0xFF]);
    }
};

constexpr Mapping<page_count(kFold)> kFolding(kFold);
constexpr Mapping<page_count(kLower)> kLowering(kLower);
constexpr Mapping<page_count(kUpper)> kUppering(kUpper);

} // namespace

zwchar fold(zwchar unit) { return kFolding(unit); }
zwchar lower(zwchar unit) { return kLowering(unit); }
zwchar upper(zwchar unit) { return kUppering(unit); }

bool same_folded(const zwchar *a, const zwchar *b) {
    while (*a && (*a == *b || kFolding(*a) == kFolding(*b))) ++a, ++b;
    return !*a && !*b;
}

} // namespace zev
