// Boundary of a hatch: loops of lines, arcs, ellipses and splines in the hatch's plane.
#pragma once

#include "picture/groups.hpp"
#include "picture/path.hpp"

namespace picture {

// The loops that the hatch's style takes, each closed, behind one another. False when a spline of
// them had broken knots.
bool read_boundary(const Groups &groups, Path &path);

} // namespace picture
