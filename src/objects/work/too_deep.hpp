// Directories that nest deeper than libgit2 walks: it fails at the first one, without its name.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/notify.h"

#include <functional>

namespace zev {

// Calls `compare(false)`, a comparison of libgit2's with the work directory, which gives its code.
// Where directories nest too deep for it, `compare(true)` comes after it, without what is in these:
// they count as ignored then, and must not be entered as such. The host is warned of each, or the
// log. False where that is of no use either, since tracked files lie there: raised, with its name.
// May throw.
bool compare_reachable(const Repository *repository, const Notify *notify,
                       const std::function<int(bool again)> &compare);

} // namespace zev
