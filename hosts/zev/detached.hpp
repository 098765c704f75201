// Detached: HEAD at a commit and on no branch, as where somebody looks at an old state.
#pragma once

#include "verb.hpp"

namespace host {

bool is_detached(const WorkingCopy &copy);

// A branch to go back to, in a copy of a server's project one that follows the server; "BRANCH"
// where it may be any of several.
std::string way_back(const WorkingCopy &copy);

// Where that is, and what leads back.
std::string detached_text(const WorkingCopy &copy);

// For whoever looks; nothing on a branch. Where stdout is for programs it is said beside it.
void tell_detached(Host &host, const WorkingCopy &copy, bool beside = false);

// Throws there: what is to be made would be on no branch, and lost when the user goes back.
void require_branch(const WorkingCopy &copy);

} // namespace host
