// Entities that show a block: INSERT, alone or in rows and columns, and those whose picture the
// editor has put into a block of their own.
#include "picture/kinds.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

struct Grid {
    int columns = 1, rows = 1;
    double column_step = 0, row_step = 0;
};

Grid grid_of(const Groups &groups) {
    return {std::max(groups.integer(70, 1), 1), std::max(groups.integer(71, 1), 1),
            groups.number(44), groups.number(45)};
}

// The block's axes in the entity's own plane, at the place where it is inserted.
Space turned(Vec place, double angle, Vec scale) {
    const double c = std::cos(angle), s = std::sin(angle);
    return {{c * scale.x, s * scale.x, 0}, {-s * scale.y, c * scale.y, 0}, {0, 0, scale.z}, place};
}

Space own_system(const Groups &groups) { return groups.has(230) ? ocs(groups.vec(210)) : Space{}; }

} // namespace

void draw_insert(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    const std::string_view name = groups.name(2);
    const Grid grid = grid_of(groups);
    const Space system = own_system(groups);
    const double angle = groups.number(50) * std::numbers::pi / 180;
    const Vec scale{groups.number(41, 1), groups.number(42, 1), groups.number(43, 1)};
    const Space first = turned(groups.vec(10), angle, scale);
    const Vec along{std::cos(angle), std::sin(angle), 0}, up{-along.y, along.x, 0};
    if (!drawer.outline().block(name)) return drawer.leave_out(entity.marks.part, reason::kMissing);
    for (int row = 0; row < grid.rows && !drawer.pen().is_spent(); ++row)
        for (int column = 0; column < grid.columns && !drawer.pen().is_spent(); ++column) {
            Space space = first;
            space.origin =
                space.origin + along * (grid.column_step * column) + up * (grid.row_step * row);
            drawer.pen().spend(1 + name.size() / kBytesOfPoint);
            drawer.draw_block(name, entity, system * space);
        }
    if (drawer.pen().is_spent()) drawer.leave_out(entity.marks.part, reason::kBeyond);
}

// Its block is drawn in the drawing's own coordinates; a copy of it may have been moved.
void draw_dimension(Drawer &drawer, const Entity &entity) {
    Space space;
    space.origin = own_system(drawer.groups) * drawer.groups.vec(12);
    if (!drawer.outline().block(drawer.groups.name(2)))
        return drawer.leave_out(entity.marks.part, drawer.groups.kind());
    drawer.draw_block(drawer.groups.name(2), entity, space);
}

void draw_table(Drawer &drawer, const Entity &entity) {
    const Vec along = drawer.groups.has(11) ? drawer.groups.vec(11) : Vec{1, 0, 0};
    const double angle = std::atan2(along.y, along.x);
    drawer.draw_block(drawer.groups.name(2), entity,
                      turned(drawer.groups.vec(10), angle, {1, 1, 1}));
}

} // namespace picture
