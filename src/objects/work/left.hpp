// Paths that can't be staged, and why.
#pragma once

#include "objects/notify/left.hpp"
#include "objects/work/index.hpp"

namespace zev {

// What Stager::stage gave for a path that it has not staged, raised in the user's words; what
// failed is raised already.
Failure raise_left(Index *index, Staging done, const char *path);

} // namespace zev
