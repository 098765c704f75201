// Width: how many columns of a terminal a text takes, whatever the locale.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

// The code point at the front of a text that isn't empty, cut off there. Of a byte that is no UTF-8
// only this byte goes.
constexpr char32_t kNoCharacter = 0xFFFFFFFF;
char32_t take(std::string_view &text);

// Of UTF-8: two for a wide character of East Asia, none for a combining one or a control
// character, one for a byte that is no UTF-8.
size_t columns(std::string_view text);

// With blanks behind it up to `width` columns, one at least.
std::string padded(const std::string &text, size_t width);

} // namespace host
