// Advances of a common sans-serif font. They decide where a line is broken and what a drawing's
// texts take up, so that a guess will do for what isn't ASCII.
#include "picture/widths.hpp"

#include "picture/encoding.hpp"

#include <cstdint>

namespace picture {

namespace {

// Of blank to tilde, in hundredths of a capital's height.
constexpr uint8_t kAdvances[] = {
    44, 55,  63,  115, 87, 130, 107, 38,  54,  54,  69,  115, 44, 49,  44, 46,  87, 87,  87,
    87, 87,  87,  87,  87, 87,  87,  46,  46,  115, 115, 115, 73, 137, 94, 94,  96, 106, 87,
    79, 106, 103, 40,  40, 90,  76,  118, 103, 108, 83,  108, 95, 87,  84, 100, 94, 136, 94,
    84, 94,  54,  46,  54, 115, 69,  69,  84,  87,  75,  87,  84, 48,  87, 87,  38, 38,  79,
    38, 134, 87,  84,  87, 87,  56,  71,  54,  87,  81,  112, 81, 81,  72, 87,  46, 87,  115};
constexpr double kOther = 0.87, kWide = 1.37;

bool is_combining(char32_t character) { return character >= 0x300 && character < 0x370; }

double advance(char32_t character) {
    if (character >= ' ' && character <= '~') return kAdvances[character - ' '] / 100.0;
    return is_wide(character) ? kWide : is_combining(character) ? 0 : kOther;
}

} // namespace

double width_of(std::string_view text) {
    double width = 0;
    while (!text.empty()) width += advance(take_character(text));
    return width;
}

bool is_wide(char32_t character) {
    return (character >= 0x2E80 && character < 0xD7B0) ||
           (character >= 0xF900 && character < 0xFB00) ||
           (character >= 0xFE30 && character < 0xFE70) ||
           (character >= 0xFF00 && character < 0xFF61) ||
           (character >= 0x20000 && character < 0x40000);
}

} // namespace picture
