// Leaders, with the arrow that their dimension style gives them, and multilines, whose lines run
// along the miters of their vertices.
#include "picture/kinds.hpp"

#include "picture/splines.hpp"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

// A dimension style with what the entity's own data has instead: pairs of a code and a value.
DimStyle style_of(const Drawer &drawer) {
    DimStyle style = drawer.outline().tables.dimstyle(drawer.groups.name(3));
    bool is_style = false;
    int code = 0;
    for (const Group &group : drawer.groups.extended()) {
        if (group.code == 1000) is_style = trimmed(group.value) == "DSTYLE";
        if (!is_style || group.code == 1002) continue;
        if (group.code == 1070 && !code) {
            code = integer_of(group.value);
            continue;
        }
        style.set(code, group.value);
        code = 0;
    }
    return style;
}

// The line under its text, if it has one.
Vec hook_of(const Groups &groups, const DimStyle &style) {
    const bool has_text = groups.integer(73, 3) == 0 && groups.integer(75) == 1;
    const double width = groups.number(41);
    if (!has_text || !style.is_text_above || !(width > 0)) return {};
    const Vec along = groups.has(211) ? groups.vec(211) : Vec{1, 0, 0};
    const double scale = style.scale == 0 ? 1 : style.scale;
    return along * ((style.gap * scale + width) * (groups.integer(74) == 1 ? -1 : 1));
}

// A line of a multiline is at each vertex as far along the miter as its first parameter says.
struct Miter {
    Vec place, across;
    std::vector<double> lines;
};

std::vector<Miter> read_miters(const Groups &groups) {
    std::vector<Miter> miters;
    bool is_first = false;
    for (const auto &[code, value] : groups.all()) {
        if (code == 11) miters.emplace_back();
        if (miters.empty()) continue;
        Miter &miter = miters.back();
        const double number = number_of(value);
        if (code == 11) miter.place.x = number;
        if (code == 21) miter.place.y = number;
        if (code == 31) miter.place.z = number;
        if (code == 13) miter.across.x = number;
        if (code == 23) miter.across.y = number;
        if (code == 33) miter.across.z = number;
        if (code == 74) is_first = true;
        if (code == 41 && is_first) miter.lines.push_back(number), is_first = false;
    }
    return miters;
}

} // namespace

void draw_arrow(Drawer &drawer, const Entity &entity, double size, uint64_t handle, Vec tip,
                Vec next) {
    const std::string_view block = drawer.outline().tables.block_of(handle);
    const Vec way = tip - next, along = unit({way.x, way.y, 0}), left{-along.y, along.x, 0};
    if (is_name(block, "_NONE") || !(size > 0)) return;
    const Space space{along * size, left * size, {0, 0, size}, tip};
    if (!block.empty() && drawer.outline().block(block))
        return drawer.draw_block(block, entity, space);
    const Matrix plane = (entity.stand.space * space).plane(0);
    drawer.path.clear();
    drawer.path.move({0, 0});
    drawer.path.line({-1, 1.0 / 6});
    drawer.path.line({-1, -1.0 / 6});
    drawer.path.close();
    drawer.fill(entity, drawer.path, plane);
}

void draw_leader(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    const Space &space = entity.stand.space;
    const DimStyle style = style_of(drawer);
    std::vector<Vec> vertices;
    for (const auto &[code, value] : groups.all()) {
        if (code == 10) vertices.push_back({number_of(value), 0, 0});
        if (code == 20 && !vertices.empty()) vertices.back().y = number_of(value);
        if (code == 30 && !vertices.empty()) vertices.back().z = number_of(value);
    }
    if (vertices.size() < 2) return;
    const Vec hook = hook_of(groups, style);
    if (length(hook) > 0) vertices.push_back(vertices.back() + hook);
    const bool has_arrow = groups.integer(71, 1) == 1;
    Spline spline;
    for (const Vec vertex : vertices) spline.fit.push_back(space.flat(vertex));
    Path &path = drawer.path;
    path.clear();
    if (groups.integer(72) == 1) {
        put_spline(path, spline);
    } else {
        for (const Point point : spline.fit) path.reach(point);
    }
    Entity own = entity;
    own.marks.ink = own.look.ink = style.ink == Ink{0} ? entity.marks.ink : style.ink;
    drawer.stroke(own, path, {});
    const double size = style.arrow * (style.scale == 0 ? 1 : style.scale);
    if (has_arrow) draw_arrow(drawer, own, size, style.leader_arrow, vertices[0], vertices[1]);
}

void draw_mline(Drawer &drawer, const Entity &entity) {
    constexpr int kClosed = 2;
    constexpr size_t kStepsOfPoint = 16; // from vertex to vertex, that cost as much as a point
    const std::vector<Miter> miters = read_miters(drawer.groups);
    if (miters.empty()) return;
    const size_t lines = miters.front().lines.size();
    if (!drawer.pen().spend(lines * miters.size() / kStepsOfPoint))
        return drawer.leave_out(entity.marks.part, reason::kBeyond);
    Path &path = drawer.path;
    path.clear();
    for (size_t line = 0; line < lines; ++line) {
        bool is_first = true;
        for (const Miter &miter : miters) {
            if (line >= miter.lines.size()) continue;
            const Point point =
                entity.stand.space.flat(miter.place + miter.across * miter.lines[line]);
            is_first ? path.move(point) : path.line(point);
            is_first = false;
        }
        if (drawer.groups.integer(71) & kClosed) path.close();
    }
    drawer.stroke(entity, path, {});
}

} // namespace picture
