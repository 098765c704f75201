// A shape costs as much as some points, so that many that are empty are limited as well.
#include "picture/pen.hpp"

#include <cmath>
#include <utility>

namespace picture {

namespace {

constexpr uint64_t kShape = 3, kText = 15; // points that they are worth

} // namespace

bool is_sound(Point point) {
    return std::abs(point.x) <= kFarthest && std::abs(point.y) <= kFarthest;
}

bool Pen::spend(uint64_t points) {
    if (is_spent_ || points > left_) {
        is_spent_ = true;
        return false;
    }
    left_ -= points;
    return true;
}

uint64_t Pen::hold_back() {
    const uint64_t half = left_ / 2;
    left_ -= half;
    return half;
}

void Pen::give_back(uint64_t points) {
    left_ += points;
    is_spent_ = false;
}

Pen::Result Pen::stroke(const Path &path, const Matrix &place, const Marks &marks) {
    return put(Shape::stroke, path, place, marks);
}

Pen::Result Pen::fill(const Path &path, const Matrix &place, const Marks &marks) {
    return put(Shape::fill, path, place, marks);
}

Pen::Result Pen::put(Shape::Kind kind, const Path &path, const Matrix &place, const Marks &marks) {
    if (path.points.size() < 2) return done;
    if (!spend(path.points.size() + kShape)) return beyond;
    Shape shape{kind, marks.ink, marks.object, marks.part, marks.weight, marks.dashes};
    shape.first = static_cast<uint32_t>(scene_.steps.size());
    shape.count = static_cast<uint32_t>(path.steps.size());
    shape.point = static_cast<uint32_t>(scene_.points.size());
    shape.points = static_cast<uint32_t>(path.points.size());
    for (const Point point : path.points) {
        const Point put = place * point;
        if (!is_sound(put)) {
            scene_.points.resize(shape.point);
            return broken;
        }
        scene_.points.push_back(put);
    }
    scene_.steps.insert(scene_.steps.end(), path.steps.begin(), path.steps.end());
    scene_.shapes.push_back(shape);
    return done;
}

Pen::Result Pen::write(Text text, const Marks &marks) {
    if (!spend(text.text.size() / 4 + kText)) return beyond;
    const Matrix &place = text.place;
    const Point far = place * Point{1, 1};
    if (!is_sound({place.e, place.f}) || !is_sound(far) || !is_sound({place.a, place.b}) ||
        !is_sound({place.c, place.d}) || !is_sound({text.width, 0}))
        return broken;
    Shape shape{Shape::text, marks.ink, marks.object, marks.part};
    shape.first = static_cast<uint32_t>(scene_.texts.size());
    scene_.texts.push_back(std::move(text));
    scene_.shapes.push_back(shape);
    return done;
}

} // namespace picture
