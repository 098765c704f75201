// What a killed process left locked.
#pragma once

#include "objects/store/repository.hpp"
#include "system/flock.hpp"
#include "zev/recovery.h"

#include <string>
#include <vector>

namespace zev {

// Whether somebody holds a lock file; what isn't there is held by nobody.
bool is_held(const std::u16string &lock_file);

// Puts back whatever has a whole copy, and takes the copies away that are done with. False, with
// the reason raised, when git's locks that were left could not be taken away. May throw.
bool put_back_left(Repository *repository);

// The first of these files that is a branch on which somebody has committed since a process died
// and left a copy of it; empty for none. Whoever has, knew nothing of the copy. May throw.
std::u16string gone_on_from(Repository *repository, const std::vector<std::u16string> &targets);

} // namespace zev
