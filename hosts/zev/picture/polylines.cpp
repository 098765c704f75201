// Polylines: lines and arcs through vertices. One with a width is an area, a piece for each of its
// segments, so that it covers itself where it crosses itself.
#include "picture/kinds.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

struct Vertex {
    Point place;
    double bulge = 0, begin_width = 0, end_width = 0; // of the segment that begins here
};

struct Polyline {
    std::vector<Vertex> vertices;
    bool is_closed = false;

    size_t segments() const {
        return vertices.size() < 2 ? 0 : vertices.size() - (is_closed ? 0 : 1);
    }
    const Vertex &behind(size_t i) const { return vertices[(i + 1) % vertices.size()]; }
    bool has_width() const {
        return std::ranges::any_of(
            vertices, [](const Vertex &v) { return v.begin_width > 0 || v.end_width > 0; });
    }
};

// A segment as points, with its direction and half its width at each.
struct Band {
    std::vector<Point> points, along;
    std::vector<double> halves;
};

constexpr double kTurnOfPoint = std::numbers::pi / 24; // between two points of an arc's band
constexpr double kSharpest = 4;                        // widths that a corner reaches out at most

void put_arc_of(Band &band, Point from, Point to, double bulge, double turn) {
    const int count = std::max(2, static_cast<int>(std::ceil(std::abs(turn) / kTurnOfPoint)));
    const Point middle = (from + to) * 0.5;
    const Point centre = middle + left_of(to - from) * ((1 - bulge * bulge) / (4 * bulge));
    const Point u = from - centre, v = left_of(u);
    const double size = length(u) * (turn < 0 ? -1 : 1);
    for (int i = 0; i <= count; ++i) {
        const double c = std::cos(turn * i / count), s = std::sin(turn * i / count);
        band.points.push_back(centre + u * c + v * s);
        band.along.push_back((v * c - u * s) * (1 / size));
    }
}

Band band_of(const Vertex &from, Point to) {
    const double turn = 4 * std::atan(from.bulge);
    Band band;
    if (std::abs(from.bulge) < 1e-9 || !std::isfinite(turn)) {
        const Point way = to - from.place;
        band.points = {from.place, to};
        band.along.assign(2, way * (1 / length(way)));
    } else {
        put_arc_of(band, from.place, to, from.bulge, turn);
    }
    const double last = double(band.points.size() - 1);
    for (double i = 0; i <= last; ++i)
        band.halves.push_back(
            (from.begin_width + (from.end_width - from.begin_width) * (i / last)) / 2);
    return band;
}

// To the left of a point, as far that two bands of equal width that meet there have one edge; where
// they turn round too sharply each ends by itself.
Point corner(Point before, Point behind, Point own) {
    const Point sum = left_of(before) + left_of(behind);
    const double square = sum.x * sum.x + sum.y * sum.y;
    return square * kSharpest * kSharpest < 4 ? left_of(own) : sum * (2 / square);
}

void put_band(Path &path, const Band &band, Point begin, Point end) {
    const size_t last = band.points.size() - 1;
    const auto side = [&](size_t i) {
        return (i == 0 ? begin : i == last ? end : left_of(band.along[i])) * band.halves[i];
    };
    path.clear();
    for (size_t i = 0; i <= last; ++i) path.reach(band.points[i] + side(i));
    for (size_t i = last + 1; i-- > 0;) path.line(band.points[i] - side(i));
    path.close();
}

// The segments that have a length.
std::vector<size_t> pieces_of(const Polyline &line) {
    std::vector<size_t> pieces;
    for (size_t i = 0; i < line.segments(); ++i)
        if (length(line.behind(i).place - line.vertices[i].place) != 0) pieces.push_back(i);
    return pieces;
}

// Three bands are held at a time: one has many times the bytes of its vertex.
void fill_bands(Drawer &drawer, const Entity &entity, const Polyline &line, const Matrix &place) {
    const std::vector<size_t> pieces = pieces_of(line);
    if (pieces.empty()) return;
    const auto band_at = [&](size_t i) {
        return band_of(line.vertices[pieces[i]], line.behind(pieces[i]).place);
    };
    Band before = band_at(pieces.size() - 1), band = band_at(0);
    for (size_t i = 0; i < pieces.size() && !drawer.pen().is_spent(); ++i) {
        const bool is_first = i == 0 && !line.is_closed;
        const bool is_last = i + 1 == pieces.size() && !line.is_closed;
        Band behind = band_at(i + 1 < pieces.size() ? i + 1 : 0);
        const Point in = is_first ? band.along.front() : before.along.back();
        const Point out = is_last ? band.along.back() : behind.along.front();
        put_band(drawer.path, band, corner(in, band.along.front(), band.along.front()),
                 corner(band.along.back(), out, band.along.back()));
        drawer.fill(entity, drawer.path, place);
        before = std::move(band);
        band = std::move(behind);
    }
}

void draw_polyline(Drawer &drawer, const Entity &entity, const Polyline &line,
                   const Matrix &place) {
    if (line.has_width()) return fill_bands(drawer, entity, line, place);
    Path &path = drawer.path;
    path.clear();
    for (size_t i = 0; i < line.vertices.size(); ++i) {
        if (!i) path.move(line.vertices[0].place);
        if (i < line.segments()) put_bulge(path, line.behind(i).place, line.vertices[i].bulge);
    }
    if (line.is_closed) path.close();
    drawer.stroke(entity, path, place);
}

// The vertices of the plane polyline that are drawn: not those that only shape a curve.
void take_vertex(const Groups &groups, double begin, double end, Polyline &line) {
    constexpr int kControl = 16;
    if (groups.integer(70) & kControl) return;
    line.vertices.push_back({{groups.number(10), groups.number(20)},
                             groups.number(42),
                             groups.number(40, begin),
                             groups.number(41, end)});
}

void draw_in_space(Drawer &drawer, const Entity &entity, bool is_closed) {
    constexpr int kControl = 16;
    const Space &space = entity.stand.space;
    Path &path = drawer.path;
    path.clear();
    for (size_t place = entity.range.first + 1; place < entity.range.last; ++place) {
        drawer.groups.read(drawer.record(place));
        if (drawer.groups.kind() != "VERTEX" || drawer.groups.integer(70) & kControl) continue;
        path.reach(space.flat(drawer.groups.vec(10)));
    }
    if (is_closed && path.points.size() > 2) path.close();
    drawer.stroke(entity, path, {});
}

} // namespace

void draw_lwpolyline(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    const double width = groups.number(43);
    Polyline line;
    line.is_closed = groups.integer(70) & 1;
    for (const auto &[code, value] : groups.all()) {
        if (code == 10) line.vertices.push_back({{number_of(value), 0}, 0, width, width});
        if (line.vertices.empty()) continue;
        Vertex &vertex = line.vertices.back();
        if (code == 20) vertex.place.y = number_of(value);
        if (code == 40) vertex.begin_width = number_of(value);
        if (code == 41) vertex.end_width = number_of(value);
        if (code == 42) vertex.bulge = number_of(value);
    }
    draw_polyline(drawer, entity, line, entity.space(groups).plane(groups.number(38)));
}

void draw_polyline(Drawer &drawer, const Entity &entity) {
    constexpr int kClosed = 1, kInSpace = 8, kMesh = 16, kFaces = 64;
    const int flags = drawer.groups.integer(70);
    if (flags & kMesh) return draw_mesh(drawer, entity);
    if (flags & kFaces) return draw_polyface(drawer, entity);
    if (flags & kInSpace) return draw_in_space(drawer, entity, flags & kClosed);
    const Matrix plane = entity.space(drawer.groups).plane(drawer.groups.number(30));
    const double begin = drawer.groups.number(40), end = drawer.groups.number(41);
    Polyline line;
    line.is_closed = flags & kClosed;
    for (size_t place = entity.range.first + 1; place < entity.range.last; ++place) {
        drawer.groups.read(drawer.record(place));
        if (drawer.groups.kind() == "VERTEX") take_vertex(drawer.groups, begin, end, line);
    }
    draw_polyline(drawer, entity, line, plane);
}

} // namespace picture
