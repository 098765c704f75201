// Author: who a commit is by.
#pragma once

#include <string>

namespace host {

// The name given, else ZEV_AUTHOR, else the user's at a server, if there is one, else the login
// name. Throws without any.
std::string author_of(const std::string &given, const std::string &user = {});

} // namespace host
