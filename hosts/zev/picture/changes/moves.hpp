// Moves: whether what changed looks as before in another place, one object or the whole drawing.
#pragma once

#include "picture/scene.hpp"

#include <optional>
#include <span>

namespace picture {

// Shapes of one object.
struct Figure {
    const Scene *scene;
    std::span<const uint32_t> shapes;
};

// By what the newer figure is the older one moved; none if they differ in more than colour and
// line. No coordinate is further off than `tolerance`.
std::optional<Point> shift_between(const Figure &older, const Figure &newer, double tolerance);

// Middle of a figure's points and their mean distance from it: they follow it wherever it is moved,
// turned or scaled, whichever point it begins with.
struct Weight {
    Point middle;
    double spread = 0;
};
Weight weigh(const Figure &figure);

// The same shapes in other places or sizes, as far as steps and texts tell.
bool is_alike(const Figure &older, const Figure &newer);

// In colour and line, of figures that are alike otherwise.
bool have_one_look(const Figure &older, const Figure &newer);

// A similarity: x' = a x - b y + e, y' = b x + a y + f.
struct WholeMove {
    Matrix matrix;
    double scale = 1, turn = 0; // degrees, anticlockwise
    bool is_shift = true;       // neither scaled nor turned
    uint64_t count = 0;         // of the pairs that it fits
    bool fits(const Weight &older, const Weight &newer, double tolerance) const;
};
struct WeightPair {
    Weight older, newer;
};
// The one that at least `least` of the pairs follow.
std::optional<WholeMove> whole_move(const std::vector<WeightPair> &pairs, size_t least,
                                    double tolerance);

void transform(Scene &scene, const Matrix &matrix);

// Numbers vectors so that equal ones, but for the tolerance, have the same number.
class Vectors {
  public:
    explicit Vectors(double tolerance) : tolerance_(tolerance) {}
    uint32_t number(Point vector);

  private:
    double tolerance_;
    std::map<std::pair<int64_t, int64_t>, uint32_t> cells_;
    std::vector<Point> vectors_;
};

} // namespace picture
