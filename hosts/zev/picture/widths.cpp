// Advances of a common sans-serif font. They decide where a line is broken and what a drawing's
// texts take up, so that a guess will do for what isn't ASCII.
#include "picture/widths.hpp"

#include "picture/encoding.hpp"

#include <cstdint>

namespace picture {

namespace {

// Of blank to tilde and of capitals' height, in thousandths of the font's size.
constexpr uint16_t kAdvances[] = {
    318, 401, 460, 838, 636, 950, 780, 275, 390, 390, 500, 838, 318, 361,  318, 337, 636, 636, 636,
    636, 636, 636, 636, 636, 636, 636, 337, 337, 838, 838, 838, 531, 1000, 684, 686, 698, 770, 632,
    575, 775, 752, 295, 295, 656, 557, 863, 748, 787, 603, 787, 695, 635,  611, 732, 684, 989, 685,
    611, 685, 390, 337, 390, 838, 500, 500, 613, 635, 550, 635, 615, 352,  635, 634, 278, 278, 579,
    278, 974, 634, 612, 635, 635, 411, 521, 392, 634, 592, 818, 592, 592,  525, 636, 337, 636, 838};
constexpr double kCapital = 729;
// In heights of a capital.
constexpr double kOther = 0.87, kWide = 1.37;

bool is_combining(char32_t character) { return character >= 0x300 && character < 0x370; }

double advance(char32_t character) {
    if (character >= ' ' && character <= '~') return kAdvances[character - ' '] / kCapital;
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
