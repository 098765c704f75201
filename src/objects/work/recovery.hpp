// What a killed process left locked.
#pragma once

#include "objects/store/repository.hpp"
#include "system/flock.hpp"
#include "zev/recovery.h"

namespace zev {

// Whether somebody holds a lock file; what isn't there is held by nobody.
bool is_held(const std::u16string &lock_file);

// Puts back whatever has a whole copy, and takes the copies away that are done with. False, with
// the reason raised, when git's locks that were left could not be taken away. May throw.
bool put_back_left(Repository *repository);

} // namespace zev
