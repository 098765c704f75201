// Path data is relative from point to point. The differences are of rounded numbers, so that no
// error adds up.
#include "picture/svg_path.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace picture {

namespace {

constexpr double kField = 100 * Frame::kSide; // half the side of the field, in units
constexpr int kMostHalvings = 24;

bool is_inside(Point p) { return std::fabs(p.x) <= kField && std::fabs(p.y) <= kField; }

double within(double value) { return std::isnan(value) ? 0 : std::clamp(value, -kField, kField); }

// All on one side of the field, so that nothing between them can be seen.
bool are_beyond(std::initializer_list<Point> points) {
    const auto all = [&](auto &&is) { return std::all_of(points.begin(), points.end(), is); };
    return all([](Point p) { return p.x < -kField; }) ||
           all([](Point p) { return p.x > kField; }) ||
           all([](Point p) { return p.y < -kField; }) || all([](Point p) { return p.y > kField; });
}

bool are_finite(std::initializer_list<Point> points) {
    return std::all_of(points.begin(), points.end(),
                       [](Point p) { return std::isfinite(p.x) && std::isfinite(p.y); });
}

Point middle(Point a, Point b) { return {(a.x + b.x) / 2, (a.y + b.y) / 2}; }

// Where a line meets the four borders of the field and their extensions, in order; the end of it
// last.
struct Cuts {
    std::array<double, 5> at;
    size_t count = 0;

    Cuts(Point from, Point to) {
        for (const double border : {-kField, kField}) {
            add((border - from.x) / (to.x - from.x));
            add((border - from.y) / (to.y - from.y));
        }
        std::sort(at.begin(), at.begin() + static_cast<ptrdiff_t>(count));
        at[count++] = 1;
    }
    void add(double share) {
        if (share > 0 && share < 1) at[count++] = share;
    }
};

} // namespace

void put_thousandths(std::string &out, int64_t value, bool is_apart) {
    if (value < 0)
        out += '-';
    else if (is_apart)
        out += ' ';
    const uint64_t amount =
        value < 0 ? -static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char digits[32];
    const uint64_t whole = amount / 1000, part = amount % 1000;
    if (whole || !part)
        out.append(digits, std::to_chars(digits, digits + sizeof digits, whole).ptr);
    if (!part) return;
    const char text[] = {'.', static_cast<char>('0' + part / 100),
                         static_cast<char>('0' + part / 10 % 10),
                         static_cast<char>('0' + part % 10)};
    out.append(text, part % 10 ? 4 : part % 100 ? 3 : 2);
}

PathData::PathData(const Frame &frame, double grid)
    : frame_(frame), grid_(std::clamp<int64_t>(std::llround(grid * 1000), 1, 1'000'000)) {}

void PathData::add(const Scene &scene, const Shape &shape) {
    const Point *next = scene.points.data() + shape.point;
    for (uint32_t i = 0; i < shape.count; ++i) switch (scene.steps[shape.first + i]) {
        case Step::move:
            move(frame_(*next++));
            break;
        case Step::line:
            line(frame_(*next++));
            break;
        case Step::curve:
            curve(frame_(next[0]), frame_(next[1]), frame_(next[2]), 0);
            next += 3;
            break;
        case Step::close:
            close();
        }
    end();
}

void PathData::clear() {
    text_.clear();
    now_ = start_ = {0, 0};
    is_begun_ = is_far_ = false;
    is_drawn_ = true;
    letter_ = 0;
}

PathData::Place PathData::place(Point point) {
    is_far_ |= !is_inside(point);
    const double parts = 1000 / static_cast<double>(grid_);
    return {std::llround(within(point.x) * parts) * grid_,
            std::llround(within(point.y) * parts) * grid_};
}

void PathData::move(Point to) {
    end();
    at_ = first_ = to;
    start_ = place(to);
    is_begun_ = is_drawn_ = false;
}

void PathData::line(Point to) {
    if (is_inside(at_) && is_inside(to)) {
        draw_to(place(to));
    } else if (std::isfinite(to.x) && std::isfinite(to.y)) {
        const Cuts cuts(at_, to);
        for (size_t i = 0; i < cuts.count; ++i) {
            const double share = cuts.at[i];
            draw_to(place({at_.x + (to.x - at_.x) * share, at_.y + (to.y - at_.y) * share}));
        }
    }
    at_ = to;
}

// By halves as long as some of it is in the field and some is not.
void PathData::curve(Point first, Point second, Point to, int depth) {
    if (is_inside(at_) && is_inside(first) && is_inside(second) && is_inside(to)) {
        const Place from = is_begun_ ? now_ : start_;
        const Place a = place(first), b = place(second), c = place(to);
        if (a != from || b != from || c != from) {
            begin();
            put_to(from, a, put('c'));
            put_to(from, b, true);
            put_to(from, c, true);
            now_ = c;
        }
        at_ = to;
        return;
    }
    if (depth == kMostHalvings || !are_finite({at_, first, second, to}) ||
        are_beyond({at_, first, second, to}))
        return line(to);
    const Point a = middle(at_, first), b = middle(first, second), c = middle(second, to);
    const Point ab = middle(a, b), bc = middle(b, c);
    curve(a, ab, middle(ab, bc), depth + 1);
    curve(bc, c, to, depth + 1);
}

void PathData::close() {
    if (is_far_) line(first_);
    if (!is_drawn_) return;
    text_ += 'z';
    at_ = first_;
    now_ = start_;
    letter_ = 0;
}

// What has come to one point only is a dot.
void PathData::end() {
    if (is_drawn_) return;
    begin();
    text_ += "h0";
    letter_ = 0;
}

void PathData::begin() {
    is_drawn_ = true;
    if (is_begun_) return;
    is_begun_ = true;
    put_to(now_, start_, put(text_.empty() ? 'M' : 'm'));
    now_ = start_;
}

// The letter of a step, which need not be told again; lines follow a relative move without one.
// True if a number was the last.
bool PathData::put(char letter) {
    const bool is_told = letter == letter_ || (letter == 'l' && letter_ == 'm');
    letter_ = letter;
    if (!is_told) text_ += letter;
    return is_told;
}

void PathData::put_to(Place from, Place to, bool is_apart) {
    put_thousandths(text_, to.x - from.x, is_apart);
    put_thousandths(text_, to.y - from.y, true);
}

void PathData::draw_to(Place to) {
    if (to == (is_begun_ ? now_ : start_)) return;
    begin();
    const Place from = now_;
    if (to.y == from.y)
        put_thousandths(text_, to.x - from.x, put('h'));
    else if (to.x == from.x)
        put_thousandths(text_, to.y - from.y, put('v'));
    else
        put_to(from, to, put('l'));
    now_ = to;
}

} // namespace picture
