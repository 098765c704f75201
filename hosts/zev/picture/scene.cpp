// Boxes and matrices of a scene.
#include "picture/scene.hpp"

#include <algorithm>

namespace picture {

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

} // namespace picture
