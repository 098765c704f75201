// Each edge of the area knows which lines of the family it crosses, so that the work grows with the
// crossings, not with lines times edges. Lines are numbered from the family's base.
#include "picture/hatch_pattern.hpp"

#include "picture/ocs.hpp"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

constexpr double kMostNumber = 1e12; // of a line, so that it is a whole number for sure

struct Crossing {
    double line, along;
    bool operator<(const Crossing &other) const {
        return line != other.line ? line < other.line : along < other.along;
    }
};

double dot(Point a, Point b) { return a.x * b.x + a.y * b.y; }

class Family {
  public:
    Family(const PatternLine &line, size_t &left) : line_(line), left_(left) {
        along_ = {std::cos(line.angle), std::sin(line.angle)};
        across_ = left_of(along_);
        step_ = dot(line.offset, across_);
        shift_ = dot(line.offset, along_);
        for (const double dash : line.dashes) period_ += std::abs(dash);
    }

    bool run(Path &path, const Rings &rings) {
        if (!(std::abs(step_) > 0)) return false;
        for (const std::vector<Point> &ring : rings)
            for (size_t i = 0; i < ring.size(); ++i)
                if (!cross(ring[i], ring[(i + 1) % ring.size()])) return false;
        std::sort(crossings_.begin(), crossings_.end());
        for (size_t i = 0; i + 1 < crossings_.size();) {
            const Crossing &from = crossings_[i], &to = crossings_[i + 1];
            const bool is_pair = from.line == to.line;
            if (is_pair && !put(path, from.line, from.along, to.along)) return false;
            i += is_pair ? 2 : 1;
        }
        return true;
    }

  private:
    // An edge has its lower end and not its upper one, so that a corner is crossed once or twice.
    bool cross(Point from, Point to) {
        const double begin = dot(from - line_.base, across_) / step_;
        const double end = dot(to - line_.base, across_) / step_;
        const double first = std::ceil(std::min(begin, end)),
                     last = std::ceil(std::max(begin, end));
        if (!(std::abs(first) < kMostNumber && std::abs(last) < kMostNumber)) return false;
        if (last - first > double(left_)) return false;
        left_ -= static_cast<size_t>(std::max(last - first, 0.0));
        const double at = dot(from - line_.base, along_), far = dot(to - line_.base, along_);
        for (double line = first; line < last; ++line)
            crossings_.push_back({line, at + (far - at) * (line - begin) / (end - begin)});
        return true;
    }

    Point point(double line, double along) const {
        return line_.base + along_ * along + across_ * (line * step_);
    }

    void piece(Path &path, double line, double from, double to) {
        path.move(point(line, from));
        path.line(point(line, to));
    }

    bool put(Path &path, double line, double from, double to) {
        if (line_.dashes.empty() || !(period_ > 0)) return piece(path, line, from, to), true;
        const double dashes = ((to - from) / period_ + 2) * double(line_.dashes.size());
        if (!(dashes <= double(left_))) return false;
        left_ -= static_cast<size_t>(dashes);
        const double origin = line * shift_;
        double at = origin + std::floor((from - origin) / period_) * period_;
        while (at <= to) {
            const double before = at;
            for (const double dash : line_.dashes) {
                const double end = at + std::abs(dash);
                const bool is_seen = dash >= 0 && end >= from && at <= to;
                if (is_seen) piece(path, line, std::max(at, from), std::min(end, to));
                at = end;
            }
            if (!(at > before)) break; // too small to count at such a distance
        }
        return true;
    }

    const PatternLine &line_;
    size_t &left_;
    Point along_, across_;
    double step_, shift_, period_ = 0;
    std::vector<Crossing> crossings_;
};

} // namespace

bool put_pattern(Path &path, const Rings &rings, const PatternLine &line, size_t &left) {
    return Family(line, left).run(path, rings);
}

} // namespace picture
