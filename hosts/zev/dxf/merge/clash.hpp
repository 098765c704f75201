// Clash: objects that both sides added under one handle, or number, without having made the same.
#pragma once

#include "dxf/merge/items.hpp"

namespace dxf::merging {

// Makes two items of each, theirs under a handle from `free_handle` on, in the order of their list,
// and notes the handles that changed. Of a polyline, an insert or a block that both added all goes
// along when one record does, and so does what names it. Gives how many handles are new.
uint64_t separate_clashes(Merging &merging, uint64_t free_handle);

} // namespace dxf::merging
