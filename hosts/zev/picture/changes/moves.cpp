// Points are compared one by one where an object is moved, and by their middles where all are.
#include "picture/changes/moves.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }

bool is_near(Point a, Point b, double tolerance) {
    return std::abs(a.x - b.x) <= tolerance && std::abs(a.y - b.y) <= tolerance;
}

bool is_near(double a, double b) {
    constexpr double kShare = 1e-6;
    return std::abs(a - b) <= kShare * std::max(std::abs(a), std::abs(b));
}

// A matrix's part that a move leaves as it is.
bool is_near(const Matrix &a, const Matrix &b) {
    const double size = std::max({std::abs(a.a), std::abs(a.b), std::abs(a.c), std::abs(a.d)});
    const double tolerance = size * 1e-6;
    return std::abs(a.a - b.a) <= tolerance && std::abs(a.b - b.b) <= tolerance &&
           std::abs(a.c - b.c) <= tolerance && std::abs(a.d - b.d) <= tolerance;
}

Point place_of(const Matrix &matrix) { return {matrix.e, matrix.f}; }

const Text &text_of(const Scene &scene, const Shape &shape) { return scene.texts[shape.first]; }

bool is_alike(const Scene &older, const Shape &a, const Scene &newer, const Shape &b) {
    if (a.kind != b.kind) return false;
    if (a.kind == Shape::text) return text_of(older, a).text == text_of(newer, b).text;
    const auto steps = older.steps.begin() + a.first;
    return a.count == b.count && a.points == b.points &&
           std::equal(steps, steps + a.count, newer.steps.begin() + b.first);
}

// What is to be the same vector everywhere.
class Shift {
  public:
    explicit Shift(double tolerance) : tolerance_(tolerance) {}
    bool take(Point older, Point newer) {
        if (!shift_) shift_ = newer - older;
        return is_near(newer - older, *shift_, tolerance_);
    }
    std::optional<Point> shift() const { return shift_; }

  private:
    double tolerance_;
    std::optional<Point> shift_;
};

bool take(Shift &shift, const Scene &older, const Shape &a, const Scene &newer, const Shape &b) {
    if (a.kind == Shape::text) {
        const Matrix &from = text_of(older, a).place, &to = text_of(newer, b).place;
        return is_near(from, to) && shift.take(place_of(from), place_of(to));
    }
    for (uint32_t i = 0; i < a.points; ++i)
        if (!shift.take(older.points[a.point + i], newer.points[b.point + i])) return false;
    return true;
}

template <class F> void each_point(const Figure &figure, F visit) {
    for (const uint32_t at : figure.shapes) {
        const Shape &shape = figure.scene->shapes[at];
        if (shape.kind == Shape::text) {
            visit(place_of(text_of(*figure.scene, shape).place));
            continue;
        }
        for (uint32_t i = 0; i < shape.points; ++i) visit(figure.scene->points[shape.point + i]);
    }
}

} // namespace

bool is_alike(const Figure &older, const Figure &newer) {
    if (older.shapes.size() != newer.shapes.size()) return false;
    for (size_t i = 0; i < older.shapes.size(); ++i)
        if (!is_alike(*older.scene, older.scene->shapes[older.shapes[i]], *newer.scene,
                      newer.scene->shapes[newer.shapes[i]]))
            return false;
    return true;
}

bool have_one_look(const Figure &older, const Figure &newer) {
    for (size_t i = 0; i < older.shapes.size(); ++i) {
        const Shape &a = older.scene->shapes[older.shapes[i]];
        const Shape &b = newer.scene->shapes[newer.shapes[i]];
        if (!(a.ink == b.ink) || a.weight != b.weight) return false;
        if (older.scene->dashes[a.dashes] != newer.scene->dashes[b.dashes]) return false;
        if (a.kind == Shape::text && text_of(*older.scene, a).font != text_of(*newer.scene, b).font)
            return false;
    }
    return true;
}

std::optional<Point> shift_between(const Figure &older, const Figure &newer, double tolerance) {
    if (!is_alike(older, newer)) return {};
    Shift shift(tolerance);
    for (size_t i = 0; i < older.shapes.size(); ++i)
        if (!take(shift, *older.scene, older.scene->shapes[older.shapes[i]], *newer.scene,
                  newer.scene->shapes[newer.shapes[i]]))
            return {};
    return shift.shift();
}

Weight weigh(const Figure &figure) {
    Weight weight;
    double count = 0;
    each_point(figure, [&](Point point) {
        ++count;
        weight.middle.x += (point.x - weight.middle.x) / count;
        weight.middle.y += (point.y - weight.middle.y) / count;
    });
    each_point(figure, [&](Point point) {
        const Point from = point - weight.middle;
        weight.spread += std::hypot(from.x, from.y) / count;
    });
    return weight;
}

bool WholeMove::fits(const Weight &older, const Weight &newer, double tolerance) const {
    const double spread = older.spread * scale;
    return is_near(matrix * older.middle, newer.middle, tolerance) &&
           std::abs(spread - newer.spread) <= tolerance;
}

namespace {

// The similarity that takes two points to two others.
std::optional<WholeMove> through(const WeightPair &first, const WeightPair &second) {
    const Point from = second.older.middle - first.older.middle;
    const Point to = second.newer.middle - first.newer.middle;
    const double length = from.x * from.x + from.y * from.y;
    if (!(length > 0)) return {};
    WholeMove move;
    const double a = (from.x * to.x + from.y * to.y) / length;
    const double b = (from.x * to.y - from.y * to.x) / length;
    move.scale = std::hypot(a, b);
    if (!(move.scale > 0) || !std::isfinite(move.scale)) return {};
    move.turn = std::atan2(b, a) * 180 / std::numbers::pi;
    move.is_shift = is_near(move.scale, 1) && std::abs(move.turn) < 1e-6;
    move.matrix = move.is_shift ? Matrix{} : Matrix{a, b, -b, a, 0, 0};
    const Point shift = first.newer.middle - move.matrix * first.older.middle;
    move.matrix.e = shift.x, move.matrix.f = shift.y;
    return move;
}

} // namespace

// Two pairs that follow it give it, and of nine in ten some of these few are two such.
std::optional<WholeMove> whole_move(const std::vector<WeightPair> &pairs, size_t least,
                                    double tolerance) {
    constexpr size_t kTries = 12;
    if (pairs.empty() || pairs.size() < least) return {};
    for (size_t n = 0; n < kTries; ++n) {
        const size_t one = n * pairs.size() / kTries,
                     other = (one + pairs.size() / 2) % pairs.size();
        auto move = through(pairs[one], pairs[other]);
        if (!move) continue;
        for (const WeightPair &pair : pairs)
            move->count += move->fits(pair.older, pair.newer, tolerance);
        if (move->count >= least) return move;
    }
    return {};
}

void transform(Scene &scene, const Matrix &matrix) {
    for (Point &point : scene.points) point = matrix * point;
    for (Text &text : scene.texts) text.place = matrix * text.place;
    Box box;
    for (const Shape &shape : scene.shapes) box.add(scene.box_of(shape));
    scene.box = box;
}

uint32_t Vectors::number(Point vector) {
    const auto place = [this](double value) {
        return static_cast<int64_t>(std::clamp(std::round(value / tolerance_), -9e18, 9e18));
    };
    const std::pair cell(place(vector.x), place(vector.y));
    for (int64_t dx = -1; dx <= 1; ++dx)
        for (int64_t dy = -1; dy <= 1; ++dy) {
            const auto found = cells_.find({cell.first + dx, cell.second + dy});
            if (found != cells_.end() && is_near(vectors_[found->second], vector, tolerance_))
                return found->second;
        }
    const auto number = static_cast<uint32_t>(vectors_.size());
    vectors_.push_back(vector);
    cells_[cell] = number;
    return number;
}

} // namespace picture
