// Anonymous blocks: those that a program makes for a dimension, a hatch, a table or a layout,
// numbered by whoever makes one, *D1, *D2 and so on, so that two people's get the same names.
#pragma once

#include "dxf/merge/layout.hpp"

namespace dxf::merging {

// Gives those of theirs that have a name which ours gave to another one the next free number of
// their kind, and notes it for the rows that name them. Reads the rows of all blocks' names then.
void rename_anonymous(Merging &merging, const std::array<Skeleton, 3> &skeletons);

} // namespace dxf::merging
