// Texts of one line: TEXT, and the attributes of blocks.
#include "picture/kinds.hpp"

#include "picture/text_codes.hpp"
#include "picture/widths.hpp"

#include <cmath>
#include <numbers>

namespace picture {

namespace {

constexpr double kDegree = std::numbers::pi / 180;
constexpr size_t kLongest = 4096; // bytes of a text
constexpr double kDescent = 0.32; // of letters below the baseline, in heights of a capital

enum Across { left, centre, right, aligned, middle, fit };

// How far the baseline is from the line that the text is placed by, in heights of a capital.
double baseline(int across, int up) {
    if (across == middle) return -0.5;
    return up == 1 ? kDescent : up == 2 ? -0.5 : up == 3 ? -1 : 0;
}

// Baseline, slant, size: the text's plane in the entity's.
Matrix place_of(Point at, double angle, double oblique, double width, double height) {
    const double c = std::cos(angle), s = std::sin(angle), slant = std::tan(oblique);
    return Matrix{c, s, -s, c, at.x, at.y} * Matrix{width, 0, slant * height, height, 0, 0};
}

// A text between two points: turned so that it runs from one to the other, and as wide.
void fit_between(Point from, Point to, bool is_fit, Text &text, double &angle, double &height,
                 double factor) {
    const Point way = to - from;
    const double usual = width_of(text.text) * factor;
    if (length(way) == 0 || usual <= 0) return;
    angle = std::atan2(way.y, way.x);
    if (!is_fit) height = length(way) / usual;
    text.width = length(way) / (height * factor);
}

void put_line(Drawer &drawer, const Entity &entity, std::string_view value, int up) {
    constexpr int kBackwards = 2, kUpsideDown = 4;
    const Groups &groups = drawer.groups;
    if (value.size() > kLongest) drawer.leave_out(entity.marks.part, reason::kBeyond);
    Text text;
    text.text = plain_text(drawer.encoding().text(value.substr(0, kLongest)), text.is_underlined);
    const TextStyle &style = drawer.outline().tables.style(groups.name(7));
    text.font = style.font, text.is_bold = style.is_bold, text.is_italic = style.is_italic;

    const int across = groups.integer(72), flags = groups.integer(71);
    const bool is_first = (across == left && up == 0) || !groups.has(11);
    const bool is_between = !is_first && (across == aligned || across == fit);
    const Point first{groups.number(10), groups.number(20)};
    const Point second{groups.number(11), groups.number(21)};
    double angle = groups.number(50) * kDegree, height = groups.number(40, 1);
    double factor = groups.number(41, 1);
    if (!(factor > 0)) factor = 1;
    if (is_between) fit_between(first, second, across == fit, text, angle, height, factor);
    const Point at = is_first || is_between ? first : second;
    const double shift = is_first || is_between ? 0 : baseline(across, up);
    text.anchor = is_first || is_between                 ? Text::start
                  : across == centre || across == middle ? Text::middle
                  : across == right                      ? Text::end
                                                         : Text::start;
    const Matrix mirrored{flags & kBackwards ? -1.0 : 1.0, 0, 0, flags & kUpsideDown ? -1.0 : 1.0};
    const Matrix own = place_of(at, angle, groups.number(51) * kDegree, height * factor, height);
    text.place = entity.space(groups).plane(groups.number(30)) * own * mirrored *
                 Matrix{1, 0, 0, 1, 0, shift};
    drawer.write(entity, std::move(text));
}

} // namespace

void draw_text(Drawer &drawer, const Entity &entity) {
    put_line(drawer, entity, drawer.groups.text(1), drawer.groups.integer(73));
}

void draw_attribute(Drawer &drawer, const Entity &entity) {
    constexpr int kHidden = 1;
    if (drawer.groups.integer(70) & kHidden) return;
    put_line(drawer, entity, drawer.groups.text(1), drawer.groups.integer(74));
}

// By its tag where it stands by itself; in an inserted block its attribute stands for it, but for
// one that is the same in each.
void draw_definition(Drawer &drawer, const Entity &entity) {
    constexpr int kHidden = 1, kConstant = 2;
    const int flags = drawer.groups.integer(70), up = drawer.groups.integer(74);
    if (!entity.stand.depth) return put_line(drawer, entity, drawer.groups.text(2), up);
    if ((flags & kConstant) && !(flags & kHidden))
        put_line(drawer, entity, drawer.groups.text(1), up);
}

} // namespace picture
