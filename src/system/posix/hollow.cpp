// Whether a directory holds anything but directories. The first file ends the search, so that
// asking again after each of many removals stays cheap.
#include "system/posix/native.hpp"

#include <dirent.h>

namespace zev::os {

namespace {

constexpr size_t kBlock = 2048; // some dozens of names: the first one mostly answers

bool is_directory(int dir, const dirent64 *entry) {
    struct stat info;
    if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_DIR;
    return fstatat(dir, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

int search(int above, const char *name) {
    const Fd dir(::openat(above, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir) return -1;
    alignas(dirent64) char block[kBlock];
    ssize_t size;
    while ((size = getdents64(dir.get(), block, sizeof block)) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(block + at);
            at += entry->d_reclen;
            if (is_dot(entry->d_name)) continue;
            if (!is_directory(dir.get(), entry)) return 1;
            if (int found = search(dir.get(), entry->d_name); found != 0) return found;
        }
    }
    return size < 0 ? -1 : 0;
}

} // namespace

int holds_file(const char16_t *path) {
    const Native name(path);
    return name ? search(AT_FDCWD, name) : -1;
}

} // namespace zev::os
