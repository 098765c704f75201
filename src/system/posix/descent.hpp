// The way of a walk through a tree of directories, with the same few of them open at any depth.
#pragma once

#include "system/posix/native.hpp"

#include <vector>

namespace zev::os {

constexpr int kOpenDir = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The directories from the top of a tree down to where a walk is. The last ones are open, and the
// very last always is. Another one is opened again through "..", which must lead to the same, and
// is read on where it was left.
class Descent {
  public:
    int fd() const { return levels_.empty() ? AT_FDCWD : levels_.back().fd.get(); }
    bool enter(Fd fd); // a directory in fd()
    Fd leave();        // the directory left, none with errno if there is no way back

  private:
    static constexpr size_t kOpen = 16;
    static constexpr size_t kDeepest = 4000; // a walk calls itself at each level
    struct Level {
        Fd fd; // none while it is closed, and then the rest says what it was
        dev_t device = 0;
        ino_t inode = 0;
        off_t read_to = 0;
    };
    std::vector<Level> levels_;

    static bool close(Level &level);
    static bool reopen(Level &level, int below);
};

} // namespace zev::os
