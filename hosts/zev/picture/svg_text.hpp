// SVG text: lines of text as elements.
#pragma once

#include "picture/svg.hpp"

namespace picture {

// The element of a text, with `more` as further attributes; empty where the letters are lower than
// `least` units, or nothing of it can be seen.
std::string text_element(const Text &text, uint32_t colour, const Frame &frame, double least,
                         const std::string &more);

// "#rrggbb"
std::string hex_of(uint32_t rgb);

} // namespace picture
