// Align: which objects without handle are the same in three versions. Their numbers tell only which
// contents they have, and of equal contents one is as good as another: the end of a polyline that
// was deleted may turn up as that of the next one.
#pragma once

#include "dxf/merge/items.hpp"

namespace dxf::merging {

// Gives the objects without handle of ours and theirs the ids of those in base that stand in their
// place, with the same content or, in between, of the same kind; all others get ids of their own.
// What both sides added alike at one place has one id. Does nothing while all versions have the
// same ones. Throws when too many that are alike can't be told apart.
void align_nameless(Merging &merging);

// Places of elements that are the same in two lists, ascending in both. None if that is too much
// work.
using Matches = std::vector<std::pair<uint32_t, uint32_t>>;
std::optional<Matches> match_lists(const std::vector<uint32_t> &a, const std::vector<uint32_t> &b);

} // namespace dxf::merging
