// HATCH: an area, or the lines of a pattern in it, which the entity itself defines. A gradient is
// an area of the entity's colour.
#include "picture/kinds.hpp"

#include "picture/hatch_boundary.hpp"
#include "picture/hatch_pattern.hpp"

#include <algorithm>
#include <numbers>

namespace picture {

namespace {

constexpr size_t kMostPieces = 400'000; // crossings, dashes and gaps of a hatch
constexpr size_t kTestsOfPoint = 16;    // of a line by an edge, that cost as much as a point

// They stand behind their count, turned and scaled already.
std::vector<PatternLine> read_pattern(const Groups &groups) {
    std::vector<PatternLine> lines;
    bool is_pattern = false;
    for (const auto &[code, value] : groups.all()) {
        if (code == 78) is_pattern = true;
        if (!is_pattern) continue;
        if (code == 53) lines.push_back({number_of(value) * std::numbers::pi / 180, {}, {}, {}});
        if (lines.empty()) continue;
        PatternLine &line = lines.back();
        if (code == 43) line.base.x = number_of(value);
        if (code == 44) line.base.y = number_of(value);
        if (code == 45) line.offset.x = number_of(value);
        if (code == 46) line.offset.y = number_of(value);
        if (code == 49) line.dashes.push_back(number_of(value));
    }
    return lines;
}

} // namespace

void draw_hatch(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    const uint32_t part = entity.marks.part;
    const Matrix plane = entity.space(groups).plane(groups.number(30));
    Path boundary;
    if (!read_boundary(groups, boundary)) drawer.leave_out(part, reason::kKnots);
    if (groups.integer(70) & 1) return drawer.fill(entity, boundary, plane);
    const std::vector<PatternLine> lines = read_pattern(groups);
    if (lines.empty()) return drawer.leave_out(part, groups.kind());
    if (!std::ranges::all_of(boundary.points, is_sound))
        return drawer.leave_out(part, reason::kBroken);
    const Rings rings = rings_of(boundary);
    size_t edges = 0;
    for (const std::vector<Point> &ring : rings) edges += ring.size();
    if (!drawer.pen().spend(lines.size() * edges / kTestsOfPoint))
        return drawer.leave_out(part, reason::kBeyond);
    drawer.path.clear();
    size_t left = kMostPieces;
    for (const PatternLine &line : lines)
        if (!put_pattern(drawer.path, rings, line, left)) drawer.leave_out(part, reason::kDense);
    drawer.pen().spend((kMostPieces - left) / 4);
    drawer.stroke(entity, drawer.path, plane);
}

} // namespace picture
