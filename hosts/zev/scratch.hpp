// Scratch: where something is made before it takes its place.
#pragma once

#include "host.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace host {

// A file written aside, as "PATH.new", synced and renamed: it is the old one or the new one, whole.
// A file system error where it stays the old one.
void replace_file(const std::filesystem::path &path, std::string_view bytes);

// A directory, gone with this, unless it was moved.
class Scratch {
  public:
    // In a directory, by a name that no other process gives.
    Scratch(const std::filesystem::path &directory, const std::string &kind,
            const std::string &name = {})
        : path_(directory / (".zev-" + kind + "-" + std::to_string(getpid()) + name)) {}
    ~Scratch() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;

    const std::filesystem::path &path() const { return path_; }
    // All of it is on the disk before it has the name, and the name when this returns.
    void move_to(const std::filesystem::path &target) {
        sync(path_, syncfs);
        std::filesystem::rename(path_, target); // an empty directory is replaced
        path_.clear();
        sync(target.parent_path(), [](int fd) { // which not every file system does
            return fsync(fd) == 0 || errno == EINVAL ? 0 : -1;
        });
    }

  private:
    static void sync(const std::filesystem::path &directory, int (*how)(int)) {
        const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool done = fd >= 0 && how(fd) == 0;
        const int code = errno;
        if (fd >= 0) close(fd);
        if (!done) throw Failed(kSystem, code, directory.string() + ": " + strerror(code));
    }

    std::filesystem::path path_;
};

} // namespace host
