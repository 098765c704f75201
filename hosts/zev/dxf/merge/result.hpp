// Result: a manifest out of what was decided, with the rows that it needs and no version has.
#pragma once

#include "dxf/merge/order.hpp"

namespace dxf::merging {

struct Blocks {
    std::string header, layout;
    std::optional<std::vector<std::string>> classes; // none: all versions have the same ones
};

// Fills all of the merge but its conflicts.
void build_result(Merging &merging, const std::array<Skeleton, 3> &skeletons,
                  const Ordered &ordered, Blocks blocks, Merge &merge);

} // namespace dxf::merging
