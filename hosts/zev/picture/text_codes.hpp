// Codes in texts: what a TEXT has between percent signs, and the formatting of an MTEXT.
#pragma once

#include "picture/encoding.hpp"
#include "picture/scene.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace picture {

// A line of TEXT as it is read, clean; whether its codes underline any of it.
std::string plain_text(std::string_view text, bool &is_underlined);

struct Format {
    double height = 1, width = 1; // of letters; the width is a factor
    double oblique = 0;           // degrees
    Ink ink{0};                   // 0 for the entity's
    std::string font;
    bool is_bold = false, is_italic = false, is_underlined = false;
    enum Align : uint8_t { usual, left, middle, right } align = usual; // of its paragraph
};

// A word, a blank, or the end of a line, and its format in MText::formats.
struct Word {
    std::string text; // clean; empty for the end of a line
    uint32_t format = 0;
    bool is_blank() const { return text == " "; }
    bool is_end() const { return text.empty(); }
};

struct MText {
    std::vector<Format> formats;
    std::vector<Word> words;
};

// Takes an MTEXT apart; `first` is the format that it begins with.
MText read_mtext(std::string_view text, const Format &first);

} // namespace picture
