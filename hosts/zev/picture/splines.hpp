// Splines as cubic curves: by their control points, or through points that they are to fit.
#pragma once

#include "picture/path.hpp"

namespace picture {

struct Spline {
    int degree = 3;
    std::vector<double> knots, weights; // no weights: all are the same
    std::vector<Point> points;          // control points
    std::vector<Point> fit;             // taken when there are no control points
};

// Begins with `reach`. False when degree, knots or weights made no sense, and even ones were taken.
bool put_spline(Path &path, const Spline &spline);

} // namespace picture
