// Findings: what the library's verification says of a project, for an administrator to read.
#pragma once

#include "host.hpp"

namespace host {

// Looks at the whole project, tells each damage and left-over on stderr, and gives the counts.
// Throws when it can't look.
VerifyCounts verify_project(Repository *repository, const std::string &name, bool quick);

} // namespace host
