// While one of these lives, libgit2 does not ask whether objects that new ones name are present:
// a client that holds part of a project writes trees of blobs, and references to commits, that it
// has never seen. The option is the process's, so the scope is kept as short as the one call.
#pragma once

#include <git2.h>

namespace zev {

class StrictOff {
  public:
    StrictOff() { git_libgit2_opts(GIT_OPT_ENABLE_STRICT_OBJECT_CREATION, 0); }
    ~StrictOff() { git_libgit2_opts(GIT_OPT_ENABLE_STRICT_OBJECT_CREATION, 1); }
    StrictOff(const StrictOff &) = delete;
    StrictOff &operator=(const StrictOff &) = delete;
};

} // namespace zev
