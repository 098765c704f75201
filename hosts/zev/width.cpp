// Columns that a text takes in a terminal: by the table, which tools/width.py makes.
#include "width.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace host {

namespace {

struct Range {
    char32_t first, last;
};

#include "width_table.inc"

template <size_t N> bool contains(const Range (&table)[N], char32_t code) {
    const Range *at =
        std::upper_bound(std::begin(table), std::end(table), code,
                         [](char32_t c, const Range &range) { return c < range.first; });
    return at != table && code <= std::prev(at)->last;
}

size_t columns_of(char32_t code) {
    if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return code < 0x80 ? 0 : 1;
    if (code < 0x300) return 1;
    if (contains(kNone, code)) return 0;
    return contains(kTwo, code) ? 2 : 1;
}

} // namespace

char32_t take(std::string_view &text) {
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000}; // of so many bytes
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char first = byte(0);
    size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    char32_t code = length == 1 ? first : first & (0x7Fu >> length);
    bool good = first < 0x80 || (first >= 0xC0 && first < 0xF8);
    for (size_t at = 1; good && at < length; ++at) {
        good = at < text.size() && (byte(at) & 0xC0) == 0x80;
        if (good) code = code << 6 | (byte(at) & 0x3F);
    }
    good = good && code >= kLeast[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    text.remove_prefix(good ? length : 1);
    return good ? code : kNoCharacter;
}

size_t columns(std::string_view text) {
    size_t count = 0;
    while (!text.empty()) count += columns_of(take(text));
    return count;
}

std::string padded(const std::string &text, size_t width) {
    const size_t taken = columns(text);
    return text + std::string(taken < width ? width - taken : 1, ' ');
}

} // namespace host
