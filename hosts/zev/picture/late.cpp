// What depends on how large the drawing is: points that are shown in a share of it, and lines that
// go on for ever, which end a little outside.
#include "picture/drawer.hpp"
#include "picture/ocs.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace picture {

namespace {

constexpr double kOverhang = 0.05;    // of the drawing, that an endless line shows
constexpr double kUsualSymbol = 0.05; // of the drawing's height, the size of a point

struct Span {
    double from, to;
    bool is_none() const { return !(from < to); }
};

// Cuts a span of place + direction t down to where one coordinate is between two values.
void cut(Span &span, double place, double direction, double low, double high) {
    if (direction == 0) {
        if (place < low || place > high) span.to = span.from;
        return;
    }
    const auto [first, last] = std::minmax({(low - place) / direction, (high - place) / direction});
    span = {std::max(span.from, first), std::min(span.to, last)};
}

Span span_of(const Late &late, const Box &box) {
    constexpr double kEndless = std::numeric_limits<double>::max();
    Span span{late.kind == Late::ray ? 0 : -kEndless, kEndless};
    cut(span, late.place.x, late.direction.x, box.low.x, box.high.x);
    cut(span, late.place.y, late.direction.y, box.low.y, box.high.y);
    return span;
}

Box wider(Box box) {
    const double more = std::max({box.width(), box.height(), 1e-6}) * kOverhang;
    return {{box.low.x - more, box.low.y - more}, {box.high.x + more, box.high.y + more}};
}

} // namespace

void Drawer::settle(const Late &late, const Box &box) {
    Shape &shape = scene_.shapes[late.shape];
    Point *points = scene_.points.data() + shape.point;
    if (late.kind == Late::symbol) {
        const double share =
            header_.point_size < 0 ? std::min(-header_.point_size / 100, 1.0) : kUsualSymbol;
        const double size = box.height() > 0 ? box.height() * share : 1;
        for (uint32_t i = 0; i < shape.points; ++i) points[i] = late.place + points[i] * size;
        return;
    }
    const Span span = span_of(late, wider(box));
    if (span.is_none()) {
        shape.count = 0;
        return;
    }
    points[0] = late.place + late.direction * span.from;
    points[1] = late.place + late.direction * span.to;
}

void Drawer::place_late() {
    std::vector<bool> is_late(scene_.shapes.size());
    for (const Late &late : late_) is_late[late.shape] = true;
    Box box;
    for (size_t i = 0; i < is_late.size(); ++i)
        if (!is_late[i]) box.add(scene_.box_of(scene_.shapes[i]));
    for (const Late &late : late_) box.add(late.place);
    for (const Late &late : late_) settle(late, box);
    std::erase_if(scene_.shapes, [](const Shape &s) { return s.kind != Shape::text && !s.count; });
    for (const Shape &shape : scene_.shapes) scene_.box.add(scene_.box_of(shape));
}

} // namespace picture
