// Regions: where in a drawing something changed, in an order in which people read, and by which
// arrows what was moved is told.
#pragma once

#include "picture/changes/diff_scene.hpp"

#include <vector>

namespace picture {

struct Region {
    Box box;                     // of all that changed in it, in the drawing's units
    std::vector<uint32_t> marks; // in their order, each once
};

// Things near each other that were moved by one vector, from middle to middle.
struct Arrow {
    Point from, to;
    uint64_t count = 0; // of things
    Box box;            // of them, where they are now
};

struct Regions {
    static constexpr size_t kMost = 12;
    std::vector<Region> shown;   // from above and the left on; those with most marks of all
    uint64_t more = 0;           // besides
    std::vector<Arrow> arrows{}; // of all
};

// A block that changed has its place in one region, wherever it stands besides.
Regions find_regions(const DiffScene &diff);

} // namespace picture
