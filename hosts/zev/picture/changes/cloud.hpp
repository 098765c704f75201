// Cloud: what a reviewer draws on a sheet: clouds around what changed, arrows, numbers in circles.
// All in the units of a picture, as SVG.
#pragma once

#include "picture/scene.hpp"

#include <string>

namespace picture {

// The value of a path's "d": arcs side by side, outwards, along a rectangle with round corners.
// `arc` is about the width of one.
std::string cloud_path(const Box &box, double arc);

// The same for a line with a head of that size, drawn open; `from` and `to` are apart.
std::string arrow_path(Point from, Point to, double head);

// A disc of that radius with the number in it.
std::string numbered_disc(Point middle, double radius, uint64_t number, uint32_t fill,
                          uint32_t ink);

} // namespace picture
