// An object's file written as the object comes: for large ones, which nobody holds in memory.
#pragma once

#include "objects/store/git.hpp"

#include <cstdint>
#include <string>

#include <git2/sys/odb_backend.h>

namespace zev {

// The stream of a backend, as libgit2 asks for one to write to. `directory` is that of objects, and
// ends with a slash. What is given back unfinished leaves nothing. libgit2's codes.
int write_loose(git_odb_stream **out, git_odb_backend *backend, const std::u16string &directory,
                git_object_t type, uint64_t size);

} // namespace zev
