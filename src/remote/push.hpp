// The push of a commit: the server is told what changed, and makes tree and commit of its own.
#pragma once

#include "remote/remote.hpp"
#include "zev/branch.h"

namespace zev {

// What a push works on; all of it is the commit's.
struct Push {
    Remote *remote;
    Branch *upstream; // the tracking branch; its tip is the commit to be pushed, its parent the
                      // server's
    const zwchar *author, *message;
    const Notify *notify;
    bool canceled = false; // out: the user broke it off
};

// True when the server has the commit; the tracking branch stands on its own one then. On failure
// the branch is where it was, all but a break is told, and what the server got does no harm there:
// nothing names it. May throw.
bool push_commit(Push &push);

// Whether what failed last was a break of the user's, which `canceled` keeps.
bool is_broken_off(Push &push);

} // namespace zev
