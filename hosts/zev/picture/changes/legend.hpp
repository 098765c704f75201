// Legend: how the lines of a diff's page look, and how many changes there are of each kind.
#pragma once

#include "picture/changes/diff_svg.hpp"
#include "picture/changes/palette.hpp"

#include <string>

namespace picture {

inline constexpr double kLetter = 0.56; // about how wide a letter is, in sizes of its font

// On one line from a point on, in units of the page.
std::string legend(const DiffCounts &counts, const Palette &palette, Point at, double size);

} // namespace picture
