// Whether bytes from outside are what their type says, before anything can name them.
#pragma once

#include "objects/store/git.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace zev {

// A blob always is. A commit or tag has the lines that git wants, and no zero byte; a tree has
// sorted entries of a known mode, each of a name that an index may hold, no two of one name.
bool has_object_form(git_object_t type, std::string_view bytes);

// What stands before an object's bytes in its file, and what its name is a sum of: "TYPE SIZE",
// with a zero byte at its end.
std::string object_head(git_object_t type, uint64_t size);

} // namespace zev
