// Names: entries of tables, and blocks, that both sides added alike under handles of their own.
#pragma once

#include "dxf/merge/items.hpp"

namespace dxf::merging {

// Theirs go, and what names them names ours': layers, styles and the like that are the same but for
// their handles, and blocks of which that holds for all that is in them.
void unite_names(Merging &merging);

} // namespace dxf::merging
