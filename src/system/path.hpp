// Path work for the library's own files.
#pragma once

#include "zev/base.h"

#include <cstddef>

namespace zev {

// Units with the zero of what the interface keeps short: the user's home, a name in a Dirent.
constexpr size_t kShortPath = 260;

// Joins like zPathBuild of two, for what opens, deletes or moves the result: a path that doesn't
// fit names another file, so it gives false with standard error 38, not logged.
bool path_join(zwchar *dst, const zwchar *directory, const zwchar *name);

// The temporary directory as it was at the first use.
const zwchar *path_remembered_temp();

} // namespace zev
