// Reverting, for those above that must not displace anything by it.
#pragma once

#include "objects/work/index.hpp"

#include <string>
#include <vector>

namespace zev {

// As zIndexRevert, exactly of these paths and as far as they are missing from the disk. One that
// something else stands in the place of is left as it is, as is one that came back meanwhile: it
// holds what its user just saved. Tells nobody; may throw.
bool revert_missing(Index *index, const std::vector<std::u16string> &paths);

} // namespace zev
