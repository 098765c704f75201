// Insets: which regions of a picture are shown enlarged below it, and where.
#pragma once

#include "picture/changes/regions.hpp"
#include "picture/svg.hpp"

#include <functional>
#include <string>
#include <vector>

namespace picture {

struct Inset {
    size_t region; // its number less one
    Box part;      // of the drawing
    // From the left and the top of the place for all, in units of the page.
    double x = 0, y = 0, width = 0, height = 0;
    std::vector<std::string> caption{}; // lines below it
};

struct InsetRoom {
    double width, gap, line;                     // of the page, between two insets, of text
    std::function<uint64_t(const Box &)> points; // how much lies in a part of the drawing
    uint64_t most_points;                        // in all parts together
    std::function<std::vector<std::string>(size_t region)> caption;
};

// Those that are larger in an inset than in the overview, in rows.
std::vector<Inset> lay_out_insets(const Regions &regions, const Box &box, const Frame &overview,
                                  const InsetRoom &room);

double height_of(const std::vector<Inset> &insets, const InsetRoom &room);

} // namespace picture
