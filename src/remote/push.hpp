// The push of a commit: the server is told what changed, and makes tree and commit of its own.
#pragma once

#include "remote/remote.hpp"
#include "zev/branch.h"
#include "zev/pathspec.h"

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

// The options of the spec, without paths, by which the changes of a commit are listed: a rename is
// what was deleted and what was added, and nothing at all is a failure.
inline constexpr uint32_t kChangeOptions =
    Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_TYPECHANGE | Z_SPEC_NO_RENAMED | Z_SPEC_MUST_MATCH;

// True when the server has the commit; the tracking branch stands on its own one then. On failure
// the branch is where it was, all but a break is told, and what the server got does no harm there:
// nothing names it. May throw.
bool push_commit(Push &push);

// Whether what failed last was a break of the user's, which `canceled` keeps.
bool is_broken_off(Push &push);

} // namespace zev
