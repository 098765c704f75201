// Path: lines and curves of one shape while it is put together, and the curves that drawings know.
#pragma once

#include "picture/scene.hpp"

#include <vector>

namespace picture {

struct Path {
    std::vector<Step> steps;
    std::vector<Point> points;

    void clear();
    void move(Point to);
    void line(Point to);
    void curve(Point first, Point second, Point to);
    void close() { steps.push_back(Step::close); }
    // A line to there, or the beginning of the path if it has none.
    void reach(Point to) { steps.empty() || steps.back() == Step::close ? move(to) : line(to); }
};

// centre + u cos t + v sin t, for t from `from` on over `sweep`, which may be negative: an arc of
// a circle or ellipse however it lies. Begins with `reach`.
void put_arc(Path &path, Point centre, Point u, Point v, double from, double sweep);

// From the path's last point to `to`: the arc that a bulge makes of that line.
void put_bulge(Path &path, Point to, double bulge);

// What an arc from one angle to another sweeps, counterclockwise: above 0, a full turn for equal
// angles.
double sweep_of(double from, double to);

// The path as closed rings of points, curves cut into lines.
std::vector<std::vector<Point>> rings_of(const Path &path);

// What a cubic curve from `from` on takes up.
Box box_of_curve(Point from, const Point *curve);

} // namespace picture
