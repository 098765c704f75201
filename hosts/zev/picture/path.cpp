// Arcs are written as cubic curves of a sixth of a turn at most, which are true to a hundred
// thousandth of the radius.
#include "picture/path.hpp"

#include "picture/ocs.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

constexpr double kTurn = 2 * std::numbers::pi, kMostOfCurve = kTurn / 6;
constexpr int kLinesOfCurve = 8;

Point on_curve(Point from, const Point *curve, double t) {
    const double s = 1 - t;
    return from * (s * s * s) + curve[0] * (3 * s * s * t) + curve[1] * (3 * s * t * t) +
           curve[2] * (t * t * t);
}

// Where a coordinate of a curve turns round, between 0 and 1: the roots of its derivative.
template <class Found>
void turning_points(double a, double b, double c, double d, const Found &found) {
    const double square = -a + 3 * b - 3 * c + d, linear = 2 * (a - 2 * b + c), constant = b - a;
    const auto take = [&](double t) {
        if (t > 0 && t < 1) found(t);
    };
    if (std::abs(square) < 1e-12 * (std::abs(linear) + std::abs(constant)))
        return take(-constant / linear);
    const double root = std::sqrt(linear * linear - 4 * square * constant);
    take((-linear + root) / (2 * square));
    take((-linear - root) / (2 * square));
}

void put_curves(Path &path, Point centre, Point u, Point v, double from, double sweep) {
    const double size = std::min(std::abs(sweep), kTurn);
    const bool is_sound = size >= 0; // else the curve is of no numbers, as the angles are
    const int count =
        is_sound ? std::max(1, static_cast<int>(std::ceil(size / kMostOfCurve - 1e-9))) : 1;
    const double part = std::clamp(sweep, -kTurn, kTurn) / count;
    const double handle = 4.0 / 3 * std::tan(part / 4);
    const auto at = [&](double t) { return centre + u * std::cos(t) + v * std::sin(t); };
    const auto along = [&](double t) { return v * std::cos(t) - u * std::sin(t); };
    for (int i = 0; i < count; ++i) {
        const double begin = from + part * i, end = from + part * (i + 1);
        path.curve(at(begin) + along(begin) * handle, at(end) - along(end) * handle, at(end));
    }
}

} // namespace

void Path::clear() {
    steps.clear();
    points.clear();
}

void Path::move(Point to) {
    steps.push_back(Step::move);
    points.push_back(to);
}

void Path::line(Point to) {
    steps.push_back(Step::line);
    points.push_back(to);
}

void Path::curve(Point first, Point second, Point to) {
    steps.push_back(Step::curve);
    points.insert(points.end(), {first, second, to});
}

void put_arc(Path &path, Point centre, Point u, Point v, double from, double sweep) {
    path.reach(centre + u * std::cos(from) + v * std::sin(from));
    put_curves(path, centre, u, v, from, sweep);
}

void put_bulge(Path &path, Point to, double bulge) {
    const Point from = path.points.back(), chord = to - from;
    if (std::abs(bulge) < 1e-9 || length(chord) == 0) return path.line(to);
    const Point middle = (from + to) * 0.5;
    const Point centre = middle + left_of(chord) * ((1 - bulge * bulge) / (4 * bulge));
    const Point radius = from - centre;
    put_curves(path, centre, radius, left_of(radius), 0, 4 * std::atan(bulge));
    path.points.back() = to; // as it was told, whatever the angles made of it
}

double sweep_of(double from, double to) {
    const double sweep = std::fmod(to - from, kTurn);
    return sweep > 1e-9 ? sweep : sweep < -1e-9 ? sweep + kTurn : kTurn;
}

std::vector<std::vector<Point>> rings_of(const Path &path) {
    std::vector<std::vector<Point>> rings;
    const Point *point = path.points.data();
    for (const Step step : path.steps) {
        if (step == Step::move) rings.emplace_back();
        if (step == Step::close || rings.empty()) continue;
        if (step != Step::curve) {
            rings.back().push_back(*point++);
            continue;
        }
        const Point from = rings.back().back();
        for (int i = 1; i <= kLinesOfCurve; ++i)
            rings.back().push_back(on_curve(from, point, double(i) / kLinesOfCurve));
        point += 3;
    }
    return rings;
}

Box box_of_curve(Point from, const Point *curve) {
    Box box;
    box.add(from);
    box.add(curve[2]);
    const auto is_inside = [&](Point p) {
        return p.x >= box.low.x && p.x <= box.high.x && p.y >= box.low.y && p.y <= box.high.y;
    };
    if (is_inside(curve[0]) && is_inside(curve[1])) return box;
    const auto take = [&](double t) { box.add(on_curve(from, curve, t)); };
    turning_points(from.x, curve[0].x, curve[1].x, curve[2].x, take);
    turning_points(from.y, curve[0].y, curve[1].y, curve[2].y, take);
    return box;
}

} // namespace picture
