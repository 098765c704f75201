// Author: who a commit is by.
#pragma once

#include <string>

namespace host {

// The name given, else ZEV_AUTHOR, else the login name. Throws without any.
std::string author_of(const std::string &given);

} // namespace host
