// Between two knots a spline of degree 3 or less without weights is one cubic curve, whose points
// its polar form gives; any other one is cut into lines there.
#include "picture/splines.hpp"

#include "picture/ocs.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace picture {

namespace {

constexpr int kHighest = 15;        // degree
constexpr int kFew = 2, kMany = 16; // lines between two knots
constexpr int kAllLines = 16'000;   // of a spline, from where on it has fewer of them

struct Weighted {
    double x, y, w;
};

Weighted mix(const Weighted &a, const Weighted &b, double share) {
    return {a.x + (b.x - a.x) * share, a.y + (b.y - a.y) * share, a.w + (b.w - a.w) * share};
}

class Pieces {
  public:
    Pieces(Path &path, const Spline &spline) : path_(path), spline_(spline) {
        const size_t count = spline.points.size();
        degree_ = std::clamp(spline.degree, 1, kHighest);
        if (degree_ != spline.degree) is_sound_ = false;
        degree_ = std::min(degree_, static_cast<int>(count) - 1);
        is_weighted_ = has_weights();
        knots_ = spline.knots;
        if (degree_ == spline.degree && are_knots_sound()) return;
        is_sound_ = false;
        knots_.clear();
        for (size_t i = 0; i < count + size_t(degree_) + 1; ++i)
            knots_.push_back(std::clamp(double(i), double(degree_), double(count)));
    }

    bool run() {
        for (size_t span = size_t(degree_); span < spline_.points.size(); ++span) {
            if (!(knots_[span] < knots_[span + 1])) continue;
            if (is_weighted_ || degree_ > 3)
                lines(span);
            else
                curve(span);
        }
        return is_sound_;
    }

  private:
    // Equal weights are none.
    bool has_weights() {
        const std::vector<double> &weights = spline_.weights;
        if (weights.empty()) return false;
        const bool are_sound = weights.size() == spline_.points.size() &&
                               std::ranges::all_of(weights, [](double w) { return w > 1e-12; });
        is_sound_ &= are_sound;
        return are_sound && std::ranges::any_of(weights, [&](double w) { return w != weights[0]; });
    }

    bool are_knots_sound() const {
        const size_t count = spline_.points.size(), degree = size_t(degree_);
        if (knots_.size() != count + degree + 1) return false;
        for (size_t i = 0; i + 1 < knots_.size(); ++i)
            if (!(knots_[i] <= knots_[i + 1])) return false;
        return knots_[degree] < knots_[count];
    }

    // The polar form at as many parameters as the degree is; with all the same, the point there.
    Weighted polar(size_t span, const std::array<double, kHighest> &at) const {
        std::array<Weighted, kHighest + 1> points;
        const size_t degree = size_t(degree_);
        for (size_t j = 0; j <= degree; ++j) {
            const Point point = spline_.points[span - degree + j];
            const double weight = is_weighted_ ? spline_.weights[span - degree + j] : 1;
            points[j] = {point.x * weight, point.y * weight, weight};
        }
        for (size_t r = 1; r <= degree; ++r)
            for (size_t j = degree; j >= r; --j) {
                const double low = knots_[j + span - degree], high = knots_[j + 1 + span - r];
                points[j] = mix(points[j - 1], points[j], (at[r - 1] - low) / (high - low));
            }
        return points[degree];
    }

    Point point(size_t span, std::array<double, kHighest> at) const {
        const Weighted result = polar(span, at);
        return {result.x / result.w, result.y / result.w};
    }

    Point point(size_t span, double t) const {
        std::array<double, kHighest> at;
        at.fill(t);
        return point(span, at);
    }

    void lines(size_t span) {
        const double from = knots_[span], size = knots_[span + 1] - from;
        path_.reach(point(span, from));
        const int spans = static_cast<int>(std::min<size_t>(spline_.points.size(), kAllLines));
        const int count = std::clamp(kAllLines / spans, kFew, kMany);
        for (int i = 1; i <= count; ++i) path_.line(point(span, from + size * i / count));
    }

    void curve(size_t span) {
        const double from = knots_[span], to = knots_[span + 1];
        const Point begin = point(span, from), end = point(span, to);
        if (path_.steps.empty() || path_.steps.back() == Step::close) path_.move(begin);
        if (degree_ == 1) return path_.line(end);
        if (degree_ == 2) {
            const Point middle = point(span, {from, to});
            return path_.curve(begin * (1.0 / 3) + middle * (2.0 / 3),
                               end * (1.0 / 3) + middle * (2.0 / 3), end);
        }
        path_.curve(point(span, {from, from, to}), point(span, {from, to, to}), end);
    }

    Path &path_;
    const Spline &spline_;
    std::vector<double> knots_;
    int degree_ = 3;
    bool is_sound_ = true, is_weighted_ = false;
};

// Through all points with one curvature on either side of each and none at the ends; the parameter
// grows by the distance between points. The directions there solve a system of three diagonals.
std::vector<Point> directions(const std::vector<Point> &points, const std::vector<double> &steps) {
    const size_t count = points.size();
    const auto slope = [&](size_t i) { return (points[i + 1] - points[i]) * (1 / steps[i]); };
    std::vector<double> upper(count);
    std::vector<Point> result(count);
    upper[0] = 0.5;
    result[0] = slope(0) * 1.5;
    for (size_t i = 1; i < count; ++i) {
        const bool is_last = i + 1 == count;
        const double before = is_last ? 1 : steps[i], behind = is_last ? 0 : steps[i - 1];
        const Point right =
            is_last ? slope(i - 1) * 3 : (slope(i - 1) * before + slope(i) * behind) * 3;
        const double pivot = 2 * (before + behind) - before * upper[i - 1];
        upper[i] = behind / pivot;
        result[i] = (right - result[i - 1] * before) * (1 / pivot);
    }
    for (size_t i = count - 1; i-- > 0;) result[i] = result[i] - result[i + 1] * upper[i];
    return result;
}

bool put_fit(Path &path, const std::vector<Point> &all) {
    std::vector<Point> points;
    std::vector<double> steps;
    for (const Point point : all) {
        const double step = points.empty() ? 1 : length(point - points.back());
        if (!(step > 0)) continue;
        if (!points.empty()) steps.push_back(step);
        points.push_back(point);
    }
    if (points.size() < 2) return false;
    const std::vector<Point> along = directions(points, steps);
    path.reach(points.front());
    for (size_t i = 0; i + 1 < points.size(); ++i) {
        const double third = steps[i] / 3;
        path.curve(points[i] + along[i] * third, points[i + 1] - along[i + 1] * third,
                   points[i + 1]);
    }
    return true;
}

} // namespace

bool put_spline(Path &path, const Spline &spline) {
    if (spline.points.size() >= 2) return Pieces(path, spline).run();
    return put_fit(path, spline.fit);
}

} // namespace picture
