// Clearing away what a killed writer left behind, so that the next one works without a hand.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/flock.h"

#include <ctime>

namespace zev {

using Lock = Owned<Flock, zFlockClose>;

// To be called before the lock on the repository's index is taken. True also when there was
// nothing to clear or the lock is held; false, with the reason raised, when clearing failed.
bool sweep_stale(Repository *repository);

// The same since a time, for the only one who works with a repository.
bool sweep_since(Repository *repository, const timespec &since);

// The lock under which the repository's configuration is written, after clearing what a killed
// writer of the configuration left. Null, with the reason raised, when it can't be had.
Lock lock_config(git_repository *handle);

} // namespace zev
