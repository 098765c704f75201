// In the way: files of the user's own where another commit has something else.
#pragma once

#include "verb.hpp"

namespace host {

// Files that differ between two commits, the first of which may be null, and that are not as the
// second has them but the user's own, tracked or not: asks whether they may go to the trash, and
// moves them there. Throws unless they may; then nothing was changed.
void clear_way(Host &host, const WorkingCopy &copy, Commit *from, Commit *to);

} // namespace host
