// Unstage: the next commit without what was marked for it, the files as they are.
#pragma once

#include "verb.hpp"

namespace host {

// What the paths select of what is staged; all of it without paths. Throws where there is nothing.
int unstage(Host &host, const WorkingCopy &copy, const Paths &paths);

} // namespace host
