// Entities of a line, curve or area each. Those that are drawn in a plane have its coordinates,
// the others those of space.
#include "picture/kinds.hpp"

#include "picture/splines.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

constexpr double kDegree = std::numbers::pi / 180;

void stroke_arc(Drawer &drawer, const Entity &entity, double from, double sweep) {
    const Groups &groups = drawer.groups;
    const Vec centre = groups.vec(10);
    const double radius = groups.number(40);
    drawer.path.clear();
    put_arc(drawer.path, {centre.x, centre.y}, {radius, 0}, {0, radius}, from, sweep);
    drawer.stroke(entity, drawer.path, entity.space(groups).plane(centre.z));
}

} // namespace

void draw_line(Drawer &drawer, const Entity &entity) {
    const Space &space = entity.stand.space;
    drawer.path.clear();
    drawer.path.move(space.flat(drawer.groups.vec(10)));
    drawer.path.line(space.flat(drawer.groups.vec(11)));
    drawer.stroke(entity, drawer.path, {});
}

void draw_ray(Drawer &drawer, const Entity &entity) {
    const Space &space = entity.stand.space;
    const Point from = space.flat(drawer.groups.vec(10));
    const Point to = space.flat(drawer.groups.vec(10) + drawer.groups.vec(11));
    const bool is_ray = drawer.groups.kind() == "RAY";
    drawer.path.clear();
    drawer.path.move({});
    drawer.path.line(to - from);
    drawer.stroke_late(entity, drawer.path, {0, is_ray ? Late::ray : Late::line, from, to - from});
}

void draw_circle(Drawer &drawer, const Entity &entity) {
    stroke_arc(drawer, entity, 0, 2 * std::numbers::pi);
}

void draw_arc(Drawer &drawer, const Entity &entity) {
    const double from = drawer.groups.number(50) * kDegree, to = drawer.groups.number(51) * kDegree;
    stroke_arc(drawer, entity, from, sweep_of(from, to));
}

void draw_ellipse(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    const Space &space = entity.stand.space;
    const Vec centre = groups.vec(10), major = groups.vec(11);
    const Vec normal = groups.has(230) ? unit(groups.vec(210)) : Vec{0, 0, 1};
    const Vec minor = cross(normal, major) * groups.number(40, 1);
    const double from = groups.number(41), to = groups.number(42, 2 * std::numbers::pi);
    const Point middle = space.flat(centre);
    drawer.path.clear();
    put_arc(drawer.path, middle, space.flat(centre + major) - middle,
            space.flat(centre + minor) - middle, from, sweep_of(from, to));
    drawer.stroke(entity, drawer.path, {});
}

void draw_spline(Drawer &drawer, const Entity &entity) {
    const Space &space = entity.stand.space;
    Spline spline;
    Vec control, fit;
    spline.degree = drawer.groups.integer(71, 3);
    for (const auto &[code, value] : drawer.groups.all()) {
        const double number = code >= 10 && code <= 41 ? number_of(value) : 0;
        if (code == 10) control = {number, 0, 0};
        if (code == 20) control.y = number, spline.points.push_back(space.flat(control));
        if (code == 30 && !spline.points.empty())
            spline.points.back() = space.flat({control.x, control.y, number});
        if (code == 11) fit = {number, 0, 0};
        if (code == 21) fit.y = number, spline.fit.push_back(space.flat(fit));
        if (code == 40) spline.knots.push_back(number);
        if (code == 41) spline.weights.push_back(number);
    }
    drawer.path.clear();
    if (!put_spline(drawer.path, spline)) drawer.leave_out(entity.marks.part, reason::kKnots);
    drawer.stroke(entity, drawer.path, {});
}

void draw_point(Drawer &drawer, const Entity &entity) {
    constexpr int kCircle = 32, kSquare = 64;
    const int mode = drawer.header().point_mode, style = mode & 7;
    // Points that dimensions hang on are not for the eye.
    if (is_name(drawer.groups.name(8), "DEFPOINTS")) return;
    Path &path = drawer.path;
    const auto line = [&](Point from, Point to) { path.move(from), path.line(to); };
    path.clear();
    if (mode & kCircle) put_arc(path, {}, {0.5, 0}, {0, 0.5}, 0, 2 * std::numbers::pi);
    if (style == 0) line({}, {});
    if (style == 2) line({-1, 0}, {1, 0}), line({0, -1}, {0, 1});
    if (style == 3) line({-1, -1}, {1, 1}), line({-1, 1}, {1, -1});
    if (style == 4) line({}, {0, 0.5});
    if (mode & kSquare) {
        line({-0.5, -0.5}, {0.5, -0.5});
        path.line({0.5, 0.5}), path.line({-0.5, 0.5}), path.close();
    }
    if (path.points.empty()) return;
    const Point place = entity.stand.space.flat(drawer.groups.vec(10));
    const double size = mode ? drawer.header().point_size : 1;
    if (size > 0)
        drawer.stroke(entity, path, {size, 0, 0, size, place.x, place.y});
    else
        drawer.stroke_late(entity, path, {0, Late::symbol, place, {}});
}

// The third and fourth corner of an area are the wrong way round.
void draw_solid(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    Path &path = drawer.path;
    path.clear();
    for (const int corner : {10, 11, 13, 12}) {
        if (corner == 13 && !groups.has(13)) continue;
        path.reach({groups.number(corner), groups.number(corner + 10)});
    }
    path.close();
    drawer.fill(entity, path, entity.space(groups).plane(groups.number(30)));
}

void draw_face(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    const Space &space = entity.stand.space;
    const int hidden = groups.integer(70);
    Path &path = drawer.path;
    path.clear();
    const int last = groups.has(13) ? 4 : 3;
    for (int i = 0; i < last; ++i) {
        if (hidden >> i & 1) continue;
        path.move(space.flat(groups.vec(10 + i)));
        path.line(space.flat(groups.vec(10 + (i + 1) % last)));
    }
    drawer.stroke(entity, path, {});
}

} // namespace picture
