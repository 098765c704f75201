// Widths: how wide a text is likely to be, without its font.
#pragma once

#include <string_view>

namespace picture {

// In heights of a capital, of good UTF-8, as a common sans-serif font has it.
double width_of(std::string_view text);

// Whether a line may end behind it, though no blank follows: ideographs, syllables, kana.
bool is_wide(char32_t character);

} // namespace picture
