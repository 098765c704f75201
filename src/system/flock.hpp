// Locks whose saved copy is made late: who only reads under the lock pays for no copy, no sync.
#pragma once

#include "zev/flock.h"

namespace zev {

// Takes the lock as zFlockOpen. Nothing is saved yet, and nothing of the target may change
// before flock_complete gave true; until then undo has nothing to do and gives true.
Flock *flock_open_lazy(const zwchar *path);
bool flock_complete(Flock *flock); // saves unless that is done

// From now on only we can undo: what a crash leaves of the saved copy is too old to be put back.
bool flock_expire(Flock *flock);

} // namespace zev
