// Shapes behind `first` are the last of the scene, and so are their steps, points and texts: they
// are taken off its end, and what is left of them is put there again. Curves across the edge become
// lines. A ring is cut at one side of the box after the other; where it then runs along the edge
// and back it has no area.
#include "picture/clip.hpp"

#include "picture/path.hpp"

#include <algorithm>
#include <functional>
#include <optional>

namespace picture {

namespace {

using Ring = std::vector<Point>;

struct Side {
    double Point::*axis;
    double at;
    bool is_upper;
    bool has(Point p) const { return is_upper ? p.*axis <= at : p.*axis >= at; }
    Point meet(Point from, Point to) const {
        const double share = (at - from.*axis) / (to.*axis - from.*axis);
        Point point{from.x + (to.x - from.x) * share, from.y + (to.y - from.y) * share};
        point.*axis = at;
        return point;
    }
};

struct Clip {
    explicit Clip(const Box &edge)
        : box(edge), sides{{{&Point::x, edge.low.x, false},
                            {&Point::x, edge.high.x, true},
                            {&Point::y, edge.low.y, false},
                            {&Point::y, edge.high.y, true}}} {}
    bool has(Point point) const {
        return std::ranges::all_of(sides, [&](const Side &side) { return side.has(point); });
    }
    Box box;
    std::array<Side, 4> sides;
};

Ring cut_ring(Ring ring, const Side &side) {
    Ring out;
    for (size_t i = 0; i < ring.size(); ++i) {
        const Point from = ring[i], to = ring[(i + 1) % ring.size()];
        if (side.has(from)) out.push_back(from);
        if (side.has(from) != side.has(to)) out.push_back(side.meet(from, to));
    }
    return out;
}

struct Line {
    Point from, to;
};

std::optional<Line> cut_line(Line line, const Clip &clip) {
    for (const Side &side : clip.sides) {
        const bool has_from = side.has(line.from), has_to = side.has(line.to);
        if (!has_from && !has_to) return {};
        if (!has_from) line.from = side.meet(line.from, line.to);
        if (!has_to) line.to = side.meet(line.from, line.to);
    }
    return line;
}

// A closed part of a path begins and ends at one point.
std::vector<Ring> open_rings(const Path &path) {
    std::vector<Ring> rings = rings_of(path);
    size_t ring = 0;
    for (const Step step : path.steps) {
        if (step == Step::move) ++ring;
        if (step == Step::close && ring) rings[ring - 1].push_back(rings[ring - 1].front());
    }
    return rings;
}

Path cut_stroke(const Path &path, const Clip &clip) {
    Path out;
    for (const Ring &ring : open_rings(path))
        for (size_t i = 0; i + 1 < ring.size(); ++i) {
            const auto line = cut_line({ring[i], ring[i + 1]}, clip);
            if (!line) continue;
            const bool goes_on = i && clip.has(ring[i]) && !out.points.empty();
            if (!goes_on) out.move(line->from);
            out.line(line->to);
        }
    return out;
}

Path cut_fill(const Path &path, const Clip &clip) {
    Path out;
    for (Ring ring : rings_of(path)) {
        for (const Side &side : clip.sides) ring = cut_ring(std::move(ring), side);
        if (ring.size() < 3) continue;
        for (const Point point : ring) out.reach(point);
        out.close();
    }
    return out;
}

// What lies behind a place of a list, which is shorter by it afterwards.
template <class T> std::vector<T> taken(std::vector<T> &from, size_t first) {
    const auto at = from.begin() + static_cast<ptrdiff_t>(std::min(first, from.size()));
    std::vector<T> out(std::make_move_iterator(at), std::make_move_iterator(from.end()));
    from.erase(at, from.end());
    return out;
}

void put(Scene &scene, Shape shape, const Path &path) {
    if (path.points.empty()) return;
    shape.first = static_cast<uint32_t>(scene.steps.size());
    shape.point = static_cast<uint32_t>(scene.points.size());
    shape.count = static_cast<uint32_t>(path.steps.size());
    shape.points = static_cast<uint32_t>(path.points.size());
    scene.steps.insert(scene.steps.end(), path.steps.begin(), path.steps.end());
    scene.points.insert(scene.points.end(), path.points.begin(), path.points.end());
    scene.shapes.push_back(shape);
}

class Tail {
  public:
    Tail(Scene &scene, size_t first) : scene_(scene), shapes_(taken(scene.shapes, first)) {
        for (const Shape &shape : shapes_) {
            const bool is_text = shape.kind == Shape::text;
            (is_text ? text_ : step_) = std::min(is_text ? text_ : step_, size_t{shape.first});
            if (!is_text) point_ = std::min(point_, size_t{shape.point});
        }
        texts_ = taken(scene.texts, text_);
        steps_ = taken(scene.steps, step_);
        points_ = taken(scene.points, point_);
    }

    void put_back(const Clip &clip) {
        for (const Shape &shape : shapes_)
            shape.kind == Shape::text ? put_text(shape, clip) : put_path(shape, clip);
    }

  private:
    void put_text(Shape shape, const Clip &clip) {
        Text &text = texts_[shape.first - text_];
        if (!clip.has({text.place.e, text.place.f})) return;
        shape.first = static_cast<uint32_t>(scene_.texts.size());
        scene_.texts.push_back(std::move(text));
        scene_.shapes.push_back(shape);
    }

    void put_path(const Shape &shape, const Clip &clip) {
        const auto step = steps_.begin() + static_cast<ptrdiff_t>(shape.first - step_);
        const auto point = points_.begin() + static_cast<ptrdiff_t>(shape.point - point_);
        const Path path{{step, step + shape.count}, {point, point + shape.points}};
        const bool is_inside =
            std::ranges::all_of(path.points, [&](Point p) { return clip.has(p); });
        put(scene_, shape,
            is_inside                     ? path
            : shape.kind == Shape::stroke ? cut_stroke(path, clip)
                                          : cut_fill(path, clip));
    }

    Scene &scene_;
    std::vector<Shape> shapes_;
    size_t text_ = SIZE_MAX, step_ = SIZE_MAX, point_ = SIZE_MAX; // where the tail begins
    std::vector<Text> texts_;
    std::vector<Step> steps_;
    std::vector<Point> points_;
};

} // namespace

void clip(Scene &scene, size_t first, const Box &box) { Tail(scene, first).put_back(Clip(box)); }

} // namespace picture
