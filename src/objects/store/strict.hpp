// While one of these lives, libgit2 does not ask whether objects that new ones name are present:
// a client that holds part of a project writes trees of blobs, and references to commits, that it
// has never seen. The option is the process's: the first scope switches it off, the last one on, on
// whatever thread, and each is kept as short as the one call.
#pragma once

#include <mutex>

#include <git2.h>

namespace zev {

class StrictOff {
  public:
    StrictOff() { count(1); }
    ~StrictOff() { count(-1); }
    StrictOff(const StrictOff &) = delete;
    StrictOff &operator=(const StrictOff &) = delete;

  private:
    static void count(int step) {
        const std::lock_guard held(mutex_);
        alive_ += step;
        git_libgit2_opts(GIT_OPT_ENABLE_STRICT_OBJECT_CREATION, alive_ == 0);
    }
    static inline std::mutex mutex_;
    static inline int alive_ = 0;
};

} // namespace zev
