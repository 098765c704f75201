// Where entities stand: points of space, the coordinate systems that blocks and entities have of
// their own, and how they look from above.
#pragma once

#include "picture/scene.hpp"

namespace picture {

struct Vec {
    double x = 0, y = 0, z = 0;
    Vec operator+(Vec other) const { return {x + other.x, y + other.y, z + other.z}; }
    Vec operator-(Vec other) const { return {x - other.x, y - other.y, z - other.z}; }
    Vec operator*(double factor) const { return {x * factor, y * factor, z * factor}; }
};

double length(Vec vec);
Vec cross(Vec a, Vec b);
Vec unit(Vec vec); // nothing for nothing

inline Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
inline Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
inline Point operator*(Point a, double factor) { return {a.x * factor, a.y * factor}; }
inline Point left_of(Point a) { return {-a.y, a.x}; } // turned by a quarter
double length(Point point);

// Axes and origin of a coordinate system, in the one that it stands in.
struct Space {
    Vec x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1}, origin;
    Vec operator*(Vec vec) const;
    Space operator*(const Space &first) const; // `first` stands in this one
    Point flat(Vec vec) const;                 // seen from above
    Matrix plane(double height) const;         // its x y plane at a height, seen from above
};

// The system of an entity with this extrusion: its axes by the arbitrary axis algorithm.
Space ocs(Vec extrusion);

} // namespace picture
