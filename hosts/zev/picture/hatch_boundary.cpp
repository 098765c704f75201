// A loop is a polyline or a row of edges, each by a count and the groups of its kind in their
// order. Counts are not believed: a loop ends with its groups. Edges may run either way; each is
// turned so that it begins where the one before it ends.
#include "picture/hatch_boundary.hpp"

#include "picture/ocs.hpp"
#include "picture/splines.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

constexpr double kDegree = std::numbers::pi / 180;

enum LoopFlag { kExternal = 1, kPolyline = 2, kTextBox = 8, kOutermost = 16 };
enum Style { kAll, kOuter, kIgnore };

struct Loop {
    Path path;
    int flags = 0;
};

void turn_round(Path &path) {
    std::ranges::reverse(path.points);
    std::reverse(path.steps.begin() + 1, path.steps.end());
}

// Behind the loop's other edges; the first move is a line there, if it is none to where it is.
void append(Path &loop, const Path &edge) {
    if (loop.points.empty() || length(loop.points.back() - edge.points.front()) > 0)
        loop.reach(edge.points.front());
    loop.steps.insert(loop.steps.end(), edge.steps.begin() + 1, edge.steps.end());
    loop.points.insert(loop.points.end(), edge.points.begin() + 1, edge.points.end());
}

bool is_nearer(Point to, Point a, Point b) { return length(a - to) < length(b - to); }

Path joined(std::vector<Path> &edges) {
    Path loop;
    for (size_t i = 0; i < edges.size(); ++i) {
        Path &edge = edges[i];
        const Point begin = edge.points.front(), end = edge.points.back();
        if (i && is_nearer(loop.points.back(), end, begin)) turn_round(edge);
        if (!i && edges.size() > 1) {
            const Path &next = edges[1];
            const auto gap = [&](Point from) {
                return std::min(length(from - next.points.front()),
                                length(from - next.points.back()));
            };
            if (gap(begin) < gap(end)) turn_round(edge);
        }
        append(loop, edge);
    }
    return loop;
}

// An angle at an ellipse's centre as the parameter that it is drawn by.
double parameter_of(double angle, double ratio) {
    const double turns = std::floor(angle / (2 * std::numbers::pi) + 0.5) * 2 * std::numbers::pi;
    return ratio == 0 ? angle : std::atan2(std::sin(angle) / ratio, std::cos(angle)) + turns;
}

class Reader {
  public:
    explicit Reader(const Groups &groups)
        : at_(groups.all().data()), end_(at_ + groups.all().size()) {}

    std::vector<Loop> run() {
        std::vector<Loop> loops;
        while (at_ != end_ && at_->code != 91) ++at_;
        skip(91);
        while (at_ != end_ && at_->code == 92) {
            Loop loop;
            loop.flags = integer(92);
            loop.path = loop.flags & kPolyline ? polyline() : edges();
            for (int count = integer(97); count > 0 && at_ != end_ && at_->code == 330; --count)
                ++at_;
            if (loop.path.points.size() > 1) loops.push_back(std::move(loop));
        }
        return loops;
    }

    bool are_knots_sound = true;

  private:
    void skip(int code) {
        if (at_ != end_ && at_->code == code) ++at_;
    }
    double number(int code, double otherwise = 0) {
        return at_ != end_ && at_->code == code ? number_of((at_++)->value) : otherwise;
    }
    int integer(int code, int otherwise = 0) {
        return at_ != end_ && at_->code == code ? integer_of((at_++)->value) : otherwise;
    }
    Point point(int code) {
        const double x = number(code);
        return {x, number(code + 10)};
    }
    bool is_next(int code) const { return at_ != end_ && at_->code == code; }

    Path polyline() {
        integer(72);
        integer(73);
        integer(93);
        Path path;
        double bulge = 0;
        while (is_next(10)) {
            const Point place = point(10);
            path.points.empty() ? path.move(place) : put_bulge(path, place, bulge);
            bulge = number(42);
        }
        if (!path.points.empty() && bulge != 0) put_bulge(path, path.points.front(), bulge);
        return path;
    }

    Path edges() {
        std::vector<Path> edges;
        integer(93);
        while (is_next(72)) {
            const int kind = integer(72);
            Path edge;
            if (kind == 1) {
                edge.move(point(10));
                edge.line(point(11));
            } else if (kind == 2) {
                arc(edge);
            } else if (kind == 3) {
                ellipse(edge);
            } else if (kind == 4) {
                spline(edge);
            } else {
                break;
            }
            if (edge.points.size() > 1) edges.push_back(std::move(edge));
        }
        return joined(edges);
    }

    // Angles of arcs that run clockwise are counted clockwise.
    void arc(Path &edge) {
        const Point centre = point(10);
        const double radius = number(40), from = number(50) * kDegree, to = number(51) * kDegree;
        const double sign = integer(73, 1) ? 1 : -1;
        put_arc(edge, centre, {radius, 0}, {0, radius}, sign * from, sign * sweep_of(from, to));
    }

    void ellipse(Path &edge) {
        const Point centre = point(10), major = point(11);
        const double ratio = number(40, 1);
        const double from = parameter_of(number(50) * kDegree, ratio);
        const double to = parameter_of(number(51) * kDegree, ratio);
        const double sign = integer(73, 1) ? 1 : -1;
        put_arc(edge, centre, major, left_of(major) * ratio, sign * from,
                sign * sweep_of(from, to));
    }

    void spline(Path &edge) {
        Spline spline;
        spline.degree = integer(94, 3);
        for (const int code : {73, 74, 95, 96}) skip(code);
        while (is_next(40)) spline.knots.push_back(number(40));
        while (is_next(10)) {
            spline.points.push_back(point(10));
            if (is_next(42)) spline.weights.push_back(number(42));
        }
        // A count of points that it fits, or of the objects that the loop comes from.
        const Group *count = at_;
        skip(97);
        while (is_next(11)) spline.fit.push_back(point(11));
        if (is_next(330)) at_ = count;
        for (const int code : {12, 13})
            if (is_next(code)) point(code);
        are_knots_sound &= put_spline(edge, spline);
    }

    const Group *at_, *end_;
};

bool is_taken(const Loop &loop, int style) {
    if (loop.flags & kTextBox) return false;
    return style == kAll || (loop.flags & kExternal) ||
           (style == kOuter && (loop.flags & kOutermost));
}

} // namespace

bool read_boundary(const Groups &groups, Path &path) {
    Reader reader(groups);
    const std::vector<Loop> loops = reader.run();
    int style = groups.integer(75);
    const auto is_any = [&] {
        return std::ranges::any_of(loops, [&](const Loop &loop) { return is_taken(loop, style); });
    };
    if (!is_any()) style = kAll;
    path.clear();
    for (const Loop &loop : loops) {
        if (!is_taken(loop, style)) continue;
        path.steps.insert(path.steps.end(), loop.path.steps.begin(), loop.path.steps.end());
        path.points.insert(path.points.end(), loop.path.points.begin(), loop.path.points.end());
        path.close();
    }
    return reader.are_knots_sound;
}

} // namespace picture
