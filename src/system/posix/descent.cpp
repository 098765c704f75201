// The way of a walk through a tree: closing what lies far above, and finding the way back to it.
#include "system/posix/descent.hpp"

namespace zev::os {

bool Descent::close(Level &level) {
    struct stat info;
    if (!level.fd) return true;
    if (fstat(level.fd.get(), &info) != 0) return false;
    level = {Fd(), info.st_dev, info.st_ino, lseek(level.fd.get(), 0, SEEK_CUR)};
    return true;
}

// What was moved elsewhere or removed meanwhile is in use: a missing one would count as done.
bool Descent::reopen(Level &level, int below) {
    struct stat info;
    level.fd = Fd(::openat(below, "..", kOpenDir));
    if (!level.fd) return failed(errno == ENOENT ? EBUSY : errno);
    if (fstat(level.fd.get(), &info) != 0) return false;
    if (info.st_dev != level.device || info.st_ino != level.inode) return failed(EBUSY);
    return !level.read_to || lseek(level.fd.get(), level.read_to, SEEK_SET) >= 0;
}

bool Descent::enter(Fd fd) {
    if (!fd) return false;
    if (levels_.size() == kDeepest) return failed(ENAMETOOLONG);
    if (levels_.size() >= kOpen && !close(levels_[levels_.size() - kOpen])) return false;
    levels_.push_back({std::move(fd)});
    return true;
}

Fd Descent::leave() {
    Fd left = std::move(levels_.back().fd);
    levels_.pop_back();
    if (levels_.empty() || levels_.back().fd || reopen(levels_.back(), left.get())) return left;
    return Fd();
}

} // namespace zev::os
