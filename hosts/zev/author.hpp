// Author: who a commit is by.
#pragma once

#include "verb.hpp"

#include <string>

namespace host {

inline constexpr const zwchar *kAuthorKey = u"zev.author";

// The name given, else the setting zev.author, ZEV_AUTHOR, the user's at a server, if there is one,
// git's user.name. Else the user is asked once, and the answer kept in his own settings; where
// nobody answers it is the login name, with a warning. Throws without any.
std::string author_of(Host &host, const WorkingCopy &copy, const std::string &given,
                      const std::string &account = {});

} // namespace host
