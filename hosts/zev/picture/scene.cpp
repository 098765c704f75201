// Boxes and matrices of a scene.
#include "picture/scene.hpp"

#include "picture/drawer.hpp"
#include "picture/widths.hpp"

#include <algorithm>

namespace picture {

namespace {

constexpr double kAscent = 1.05, kDescent = 0.32; // of letters, in heights of a capital

Box box_of_text(const Text &text) {
    const double width = text.width > 0 ? text.width : width_of(text.text);
    const double from = text.anchor == Text::start    ? 0
                        : text.anchor == Text::middle ? -width / 2
                                                      : -width;
    Box box;
    for (const double x : {from, from + width})
        for (const double y : {-kDescent, kAscent}) box.add(text.place * Point{x, y});
    return box;
}

} // namespace

void Box::add(Point point) {
    if (is_empty()) {
        low = high = point;
        return;
    }
    low = {std::min(low.x, point.x), std::min(low.y, point.y)};
    high = {std::max(high.x, point.x), std::max(high.y, point.y)};
}

void Box::add(const Box &box) {
    if (box.is_empty()) return;
    add(box.low);
    add(box.high);
}

Point Matrix::operator*(Point point) const {
    return {a * point.x + c * point.y + e, b * point.x + d * point.y + f};
}

Matrix Matrix::operator*(const Matrix &first) const {
    return {a * first.a + c * first.b,     b * first.a + d * first.b,
            a * first.c + c * first.d,     b * first.c + d * first.d,
            a * first.e + c * first.f + e, b * first.e + d * first.f + f};
}

Box Scene::box_of(const Shape &shape) const {
    if (shape.kind == Shape::text) return box_of_text(texts[shape.first]);
    Box box;
    const Point *point = points.data() + shape.point;
    for (uint32_t i = 0; i < shape.count; ++i) {
        const Step step = steps[shape.first + i];
        if (step == Step::curve) {
            box.add(box_of_curve(point[-1], point));
            point += 3;
        } else if (step != Step::close) {
            box.add(*point++);
        }
    }
    return box;
}

Scene draw(const dxf::Content &content, const SceneOptions &options) {
    Scene scene;
    Drawer(content, options, scene).run();
    return scene;
}

} // namespace picture
