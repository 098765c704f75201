// Whether a directory holds anything but directories. The first file ends the search, so that
// asking again after each of many removals stays cheap.
#include "system/posix/descent.hpp"

#include <dirent.h>

namespace zev::os {

namespace {

bool is_directory(int dir, const dirent64 *entry) {
    struct stat info;
    if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_DIR;
    return fstatat(dir, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

// Each answer is 1 at the first file, else 0, or -1.
class Search {
  public:
    int enter(const char *name);

  private:
    Descent at_;
    alignas(dirent64) char block_[2048]; // some dozens of names: the first one mostly answers

    int below();
    bool is_hollow(size_t size, std::vector<std::string> *directories) const;
};

// Whether a block of names has directories only.
bool Search::is_hollow(size_t size, std::vector<std::string> *directories) const {
    for (size_t at = 0; at < size;) {
        const auto *entry = reinterpret_cast<const dirent64 *>(block_ + at);
        at += entry->d_reclen;
        if (is_dot(entry->d_name)) continue;
        if (!is_directory(at_.fd(), entry)) return false;
        directories->emplace_back(entry->d_name);
    }
    return true;
}

int Search::below() {
    ssize_t size;
    while ((size = getdents64(at_.fd(), block_, sizeof block_)) > 0) {
        std::vector<std::string> directories;
        if (!is_hollow(static_cast<size_t>(size), &directories)) return 1;
        for (const std::string &name : directories)
            if (const int found = enter(name.c_str()); found != 0) return found;
    }
    return size < 0 ? -1 : 0;
}

int Search::enter(const char *name) {
    if (!at_.enter(Fd(::openat(at_.fd(), name, kOpenDir)))) return -1;
    const int found = below();
    return found ? found : at_.leave() ? 0 : -1;
}

} // namespace

int holds_file(const char16_t *path) {
    const Native name(path);
    int found = -1;
    guarded([&] { return name && (found = Search().enter(name)) >= 0; });
    return found;
}

} // namespace zev::os
