// The plan view is from above: what it takes of a point is x and y.
#include "picture/ocs.hpp"

#include <cmath>

namespace picture {

double length(Vec vec) { return std::hypot(vec.x, vec.y, vec.z); }
double length(Point point) { return std::hypot(point.x, point.y); }

Vec cross(Vec a, Vec b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

Vec unit(Vec vec) {
    const double size = length(vec);
    return size > 0 ? vec * (1 / size) : Vec{};
}

Vec Space::operator*(Vec vec) const { return x * vec.x + y * vec.y + z * vec.z + origin; }

Space Space::operator*(const Space &first) const {
    const auto turn = [this](Vec vec) { return x * vec.x + y * vec.y + z * vec.z; };
    return {turn(first.x), turn(first.y), turn(first.z), *this * first.origin};
}

Point Space::flat(Vec vec) const {
    const Vec seen = *this * vec;
    return {seen.x, seen.y};
}

Matrix Space::plane(double height) const {
    return {x.x, x.y, y.x, y.y, origin.x + z.x * height, origin.y + z.y * height};
}

Space ocs(Vec extrusion) {
    const Vec normal = unit(extrusion);
    const bool is_upright = normal.x == 0 && normal.y == 0 && normal.z > 0;
    if (is_upright || length(normal) == 0) return {};
    constexpr double kNear = 1.0 / 64;
    const bool is_near = std::abs(normal.x) < kNear && std::abs(normal.y) < kNear;
    const Vec x = unit(cross(is_near ? Vec{0, 1, 0} : Vec{0, 0, 1}, normal));
    return {x, unit(cross(normal, x)), normal, {}};
}

} // namespace picture
