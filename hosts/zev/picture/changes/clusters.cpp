// A cell belongs to the first thing that touches it, and joins the others to that one.
#include "picture/changes/clusters.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace picture {

Clusters::Clusters(const Box &box, size_t things) : low_(box.low), is_seen_(things) {
    cell_ = std::max(box.width(), box.height()) / kCells;
    if (!(cell_ > 0)) cell_ = 1;
    columns_ = static_cast<int>(box.width() / cell_) + 1;
    rows_ = static_cast<int>(box.height() / cell_) + 1;
    owners_.resize(static_cast<size_t>(columns_) * static_cast<size_t>(rows_), kNowhere);
    sets_.up.resize(things);
    std::iota(sets_.up.begin(), sets_.up.end(), 0u);
}

uint32_t Clusters::Sets::root(uint32_t thing) {
    while (up[thing] != thing) thing = up[thing] = up[up[thing]];
    return thing;
}

// The lower number is the root, so that groups are found in the order of the things.
void Clusters::Sets::join(uint32_t one, uint32_t other) {
    one = root(one), other = root(other);
    up[std::max(one, other)] = std::min(one, other);
}

void Clusters::join(uint32_t one, uint32_t other) { sets_.join(one, other); }

void Clusters::touch(uint32_t thing, int x, int y) {
    x = std::clamp(x, 0, columns_ - 1), y = std::clamp(y, 0, rows_ - 1);
    uint32_t &owner =
        owners_[static_cast<size_t>(y) * static_cast<size_t>(columns_) + static_cast<size_t>(x)];
    if (owner == kNowhere)
        owner = thing;
    else if (owner != thing)
        sets_.join(owner, thing);
    is_seen_[thing] = true;
}

void Clusters::add(uint32_t thing, Point from, Point to) {
    const auto place = [this](double value, double low) {
        return std::clamp((value - low) / cell_, -1.0, kCells + 1);
    };
    const double x = place(from.x, low_.x), y = place(from.y, low_.y);
    const double dx = place(to.x, low_.x) - x, dy = place(to.y, low_.y) - y;
    const int steps = static_cast<int>(std::max(std::abs(dx), std::abs(dy))) + 1;
    for (int i = 0; i <= steps; ++i)
        touch(thing, static_cast<int>(x + dx * i / steps), static_cast<int>(y + dy * i / steps));
}

// Curves by the polygon of their control points.
void Clusters::add(uint32_t thing, const Scene &scene, const Shape &shape) {
    if (shape.kind == Shape::text) {
        const Box box = scene.box_of(shape);
        if (box.is_empty()) return;
        const Point other{box.high.x, box.low.y}, third{box.low.x, box.high.y};
        add(thing, box.low, other);
        add(thing, other, box.high);
        add(thing, third, box.high);
        return add(thing, box.low, third);
    }
    uint32_t point = shape.point;
    Point last{}, first{};
    for (uint32_t i = 0; i < shape.count; ++i) {
        const Step step = scene.steps[shape.first + i];
        if (step == Step::move) last = first = scene.points[point++];
        if (step == Step::move) add(thing, last, last);
        if (step == Step::close) add(thing, last, first);
        const uint32_t points = step == Step::line ? 1 : step == Step::curve ? 3 : 0;
        for (uint32_t k = 0; k < points; ++k, ++point) {
            add(thing, last, scene.points[point]);
            last = scene.points[point];
        }
    }
}

void Clusters::reach_from(Sets &sets, int x, int y, int reach) const {
    const auto at = [this](int column, int row) {
        return owners_[static_cast<size_t>(row) * static_cast<size_t>(columns_) +
                       static_cast<size_t>(column)];
    };
    const uint32_t own = at(x, y);
    if (own == kNowhere) return;
    for (int row = y; row <= std::min(y + reach, rows_ - 1); ++row)
        for (int column = std::max(x - reach, 0); column <= std::min(x + reach, columns_ - 1);
             ++column)
            if (at(column, row) != kNowhere) sets.join(own, at(column, row));
}

std::vector<uint32_t> Clusters::groups(int reach) const {
    Sets sets = sets_;
    for (int y = 0; y < rows_; ++y)
        for (int x = 0; x < columns_; ++x) reach_from(sets, x, y, reach);
    std::vector<uint32_t> groups(is_seen_.size(), kNowhere);
    uint32_t count = 0;
    for (uint32_t thing = 0; thing < groups.size(); ++thing) {
        if (!is_seen_[thing]) continue;
        uint32_t &group = groups[sets.root(thing)];
        if (group == kNowhere) group = count++;
        groups[thing] = group;
    }
    return groups;
}

} // namespace picture
