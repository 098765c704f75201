// The road to the server, for those who take it.
#pragma once

#include "zev/base.h"

namespace zev {

// Opens the server of a working copy, its remote "origin". Without one it raises libgit2's error of
// the look-up, with one class 15: there is no client for it in this library.
bool open_remote(Repository *repository);

} // namespace zev
