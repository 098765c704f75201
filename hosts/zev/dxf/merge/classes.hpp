// Classes: CLASS records, by the names of the records that they tell of.
#pragma once

#include "dxf/merge/parts.hpp"

namespace dxf::merging {

struct MergedClasses {
    std::vector<std::string> records;
    std::vector<MergeConflict> conflicts;
};

// The number of instances, which is advice, is the larger one where both changed it.
MergedClasses merge_classes(const std::array<std::vector<std::string_view>, 3> &versions,
                            std::optional<Side> others);

} // namespace dxf::merging
