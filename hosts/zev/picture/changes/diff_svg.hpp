// Diff SVG: two versions of a drawing as one page for people: an overview in which what stayed is
// grey, an enlarged part for each region with changes, and words for what can't be seen.
//
// The same contents, changes, options and language give the same bytes.
#pragma once

#include "dxf/content.hpp"
#include "picture/svg.hpp"

#include <string>
#include <vector>

namespace picture {

struct DiffOptions {
    Theme theme;
    std::string title;        // of the page
    std::string older, newer; // what the versions are called
    SceneOptions::Space space = SceneOptions::any;
};

// What the picture shows, and what it only tells.
struct DiffCounts {
    uint64_t added = 0, modified = 0, removed = 0, moved = 0;
    uint64_t carried = 0; // moved, scaled or turned with the whole drawing
    uint64_t unseen = 0;
    uint64_t alike = 0;   // written otherwise, and look the same
    uint64_t regions = 0; // in which something changed
    bool is_paper = false;
};

// A version that there isn't is one without anything.
DiffCounts write_diff(const dxf::Content &older, const dxf::Content &newer,
                      const std::vector<dxf::ObjectChange> &changes, const DiffOptions &options,
                      const Write &write);

} // namespace picture
