// Insets of a row have one height, and fill it where there are enough of them.
#include "picture/changes/insets.hpp"

#include <algorithm>

namespace picture {

namespace {

constexpr double kEnlarged = 1.05;                // less is not worth an inset
constexpr double kNarrowest = 0.7, kWidest = 1.6; // ratios of an inset's sides

Box boxed(const Box &inner, double width, double height) {
    const Point middle{(inner.low.x + inner.high.x) / 2, (inner.low.y + inner.high.y) / 2};
    Box box;
    box.add(Point{middle.x - width / 2, middle.y - height / 2});
    box.add(Point{middle.x + width / 2, middle.y + height / 2});
    return box;
}

// What changed, with some ground beside it that shows where that is.
Box part_of(const Box &changed, double side) {
    const double size = std::max(changed.width(), changed.height());
    const double least = size > 0 ? std::min(side * 0.12, size * 12) : side * 0.12;
    const double edge = size * 0.12 + std::min(side * 0.02, least);
    double width = std::max(changed.width() + 2 * edge, least);
    double height = std::max(changed.height() + 2 * edge, least);
    width = std::max(width, height * kNarrowest);
    height = std::max(height, width / kWidest);
    return boxed(changed, width, height);
}

std::vector<Inset> choose(const Regions &regions, const Box &box, const Frame &overview,
                          const InsetRoom &room, double height) {
    std::vector<Inset> insets;
    const double side = std::max(box.width(), box.height());
    uint64_t left = room.most_points;
    for (size_t at = 0; at < regions.shown.size() && side > 0; ++at) {
        const Box part = part_of(regions.shown[at].box, side);
        if (height < part.height() * overview.scale() * kEnlarged) continue;
        const double width = height * part.width() / part.height();
        if (width > room.width) continue;
        const uint64_t points = room.points(part);
        if (points > left) continue;
        left -= points;
        insets.push_back({.region = at, .part = part, .width = width, .height = height});
    }
    return insets;
}

constexpr double kLeastStretch = 0.8, kMostStretch = 1.25;

// How many from the first on go into one row.
size_t row_at(const std::vector<Inset> &insets, size_t first, const InsetRoom &room) {
    double width = insets[first].width;
    size_t count = 1;
    while (first + count < insets.size()) {
        width += insets[first + count].width;
        if (width * kLeastStretch + room.gap * static_cast<double>(count) > room.width) break;
        ++count;
    }
    return count;
}

// Gives the row's height with captions.
double place_row(Inset *first, size_t count, const InsetRoom &room, double y) {
    double width = 0;
    for (size_t i = 0; i < count; ++i) width += first[i].width;
    const double free = room.width - room.gap * static_cast<double>(count - 1);
    const double stretch = std::min(free / width, kMostStretch);
    double x = 0;
    size_t lines = 0;
    for (size_t i = 0; i < count; ++i) {
        Inset &inset = first[i];
        inset.x = x, inset.y = y;
        inset.width *= stretch, inset.height *= stretch;
        inset.caption = room.caption(inset.region);
        lines = std::max(lines, inset.caption.size());
        x += inset.width + room.gap;
    }
    return first->height + room.line * (static_cast<double>(lines) + 0.5);
}

} // namespace

std::vector<Inset> lay_out_insets(const Regions &regions, const Box &box, const Frame &overview,
                                  const InsetRoom &room) {
    constexpr double kHigh = 320, kLow = 260; // units; a few insets may be larger
    constexpr size_t kFew = 3;
    std::vector<Inset> insets = choose(regions, box, overview, room, kHigh);
    if (insets.size() > kFew) insets = choose(regions, box, overview, room, kLow);
    double y = 0;
    for (size_t at = 0; at < insets.size();) {
        const size_t count = row_at(insets, at, room);
        y += place_row(&insets[at], count, room, y) + room.gap;
        at += count;
    }
    return insets;
}

double height_of(const std::vector<Inset> &insets, const InsetRoom &room) {
    double height = 0;
    for (const Inset &inset : insets)
        height =
            std::max(height, inset.y + inset.height +
                                 room.line * (static_cast<double>(inset.caption.size()) + 0.5));
    return height;
}

} // namespace picture
