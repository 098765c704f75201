// The user's rights on the files of a working copy, as far as their modes show them.
#pragma once

#include "objects/work/index.hpp"
#include "zev/authdb.h"

namespace zev {

using AuthdbPtr = Owned<Authdb, zAuthdbFree>;

// The rules that a server gave this copy; null where it gave none, or they can't be read.
AuthdbPtr rules_of(Repository *repository);

// Gives each file that the index has and a spec (null for all) selects its write bits, or takes
// them away, as the rules say; nothing else of its mode changes, and a file that is as it should be
// is not touched. The entries keep up with their files, in memory. A copy that no server has given
// rules is left as its user has it. What fails at one file is raised, and the others go on. May
// throw.
void fit_modes(Index *index, PathSpec *spec, Authdb *rules);

} // namespace zev
