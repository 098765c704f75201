// Odd names: those that no commit can hold, as drives from elsewhere bring them: control
// characters, a backslash, what is no UTF-8. Nothing else reaches such a file, so that it can be
// got rid of here.
#pragma once

#include "verb.hpp"

namespace host {

// Whether the path is there and its last name is an odd one.
bool is_odd(const std::string &path);

// Moves what is there within its file system, over nothing. The directory that it is in must be one
// of the working copy.
void move_odd(const WorkingCopy &copy, const std::string &from, const std::string &to);

// The path, or where that is odd the one beside it under which it is from here on, with "%0A" for a
// line feed.
std::string under_plain_name(Host &host, const WorkingCopy &copy, const std::string &path);

} // namespace host
