// VIEWPORT: a window of paper space into the model, seen from above. Others are left out.
#include "picture/kinds.hpp"

#include "picture/clip.hpp"

#include <cmath>
#include <numbers>

namespace picture {

namespace {

// From model space to paper.
Space view_of(const Groups &groups, double scale) {
    const double twist = groups.number(51) * std::numbers::pi / 180;
    const double c = std::cos(twist) * scale, s = std::sin(twist) * scale;
    Space view{{c, s, 0}, {-s, c, 0}, {0, 0, scale}, {}};
    const Vec middle{groups.number(12), groups.number(22), 0};
    view.origin = groups.vec(10) - middle * scale - view * groups.vec(17);
    return view;
}

bool is_from_above(const Groups &groups) {
    if (!groups.has(36)) return true;
    const Vec direction = unit(groups.vec(16));
    return std::abs(direction.x) < 1e-6 && std::abs(direction.y) < 1e-6 && direction.z > 0;
}

std::vector<bool> frozen_layers(const Groups &groups, const Tables &tables) {
    std::vector<bool> frozen(tables.layers.size());
    for (const auto &[code, value] : groups.all()) {
        if ((code != 331 && code != 341) || !handle_of(value)) continue;
        const auto found = tables.layer_handles.find(handle_of(value));
        if (found != tables.layer_handles.end()) frozen[found->second] = true;
    }
    return frozen;
}

} // namespace

void draw_viewport(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    // The first one is the paper itself.
    const bool is_on = groups.integer(68, 1) > 0 && groups.integer(69, 2) != 1;
    if (!drawer.is_paper() || entity.stand.depth || !is_on) return;
    const double width = groups.number(40), height = groups.number(41);
    const double scale = height / groups.number(45, height);
    const bool is_sound = width > 0 && height > 0 && scale > 0 && scale < kFarthest;
    if (!is_sound || !is_from_above(groups))
        return drawer.leave_out(entity.marks.part, groups.kind());
    if (drawer.pen().is_spent()) return drawer.leave_out(entity.marks.part, reason::kBeyond);
    const Point middle{groups.number(10), groups.number(20)};
    const Point half{width / 2, height / 2};
    const Box box{middle - half, middle + half};
    const size_t first = drawer.scene().shapes.size();
    drawer.draw_model({view_of(groups, scale), entity.stand.look},
                      {box, scale, frozen_layers(groups, drawer.outline().tables)});
    clip(drawer.scene(), first, box);
}

} // namespace picture
