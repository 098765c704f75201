// Patterns of hatches: families of lines across an area.
#pragma once

#include "picture/path.hpp"

namespace picture {

struct PatternLine {
    double angle = 0;           // radians
    Point base, offset;         // of the first line, and from a line to the next
    std::vector<double> dashes; // gaps below zero, dots zero; none for a whole line
};

using Rings = std::vector<std::vector<Point>>;

// The lines of a family within the rings, by the even-odd rule, behind the path. Crossings, dashes
// and gaps are taken off `left`; false when they are too many for it, or to be counted at all: what
// was made by then is in the path.
bool put_pattern(Path &path, const Rings &rings, const PatternLine &line, size_t &left);

} // namespace picture
