// Decide: whose state of each object the result takes, and what is in conflict.
#pragma once

#include "dxf/merge/items.hpp"

namespace dxf::merging {

struct Choices {
    const std::map<uint64_t, Side> &decided;
    std::optional<Side> others;
    Side newer; // the side that was saved last
};

// By what each side did to the object itself.
void decide_by_change(Merging &merging, const Choices &choices);

// By what the objects need: owners, blocks, layers, styles and whatever else a side's object names
// and that side has must be in the result; no two entries of a table have one name. What was
// decided brings along what it needs. `runs` are the places in each list at which a section begins.
void decide_by_needs(Merging &merging, const Choices &choices,
                     const std::array<std::vector<uint32_t>, 3> &runs);

} // namespace dxf::merging
