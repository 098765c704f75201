// Incoming: an update as "get" and "update" make it, from its first word to its last.
#pragma once

#include "reception.hpp"

namespace host {

// Brings the copy to the server's newest state, or to a target (null for none), of what the paths
// select (null for all); with `merges`, drawings that both sides changed come together where no
// object is in conflict. Gives the exit code.
int take_update(Host &host, const WorkingCopy &copy, const char *verb, const Oid *target,
                PathSpec *paths, bool merges);

// The end of it, also where another call has brought it: `before` is the tree that HEAD had, null
// for none, `whole` says that it was of all paths. Gives the exit code.
int tell_update(Host &host, const WorkingCopy &copy, const Oid *before, bool whole,
                Reception &reception);

} // namespace host
