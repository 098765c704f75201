// Path work for the library's own files.
#pragma once

#include "zev/base.h"

namespace zev {

// Joins like zPathBuild of two, for what opens, deletes or moves the result: a path that doesn't
// fit names another file, so it gives false with standard error 38, not logged.
bool path_join(zwchar *dst, const zwchar *directory, const zwchar *name);

// The temporary directory as it was at the first use.
const zwchar *path_remembered_temp();

} // namespace zev
