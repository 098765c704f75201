// Scratch: a directory in which something is made before it takes its place.
#pragma once

#include <filesystem>

#include <unistd.h>

namespace host {

// Gone with this, unless it was moved.
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
    void move_to(const std::filesystem::path &target) {
        std::filesystem::rename(path_, target); // an empty directory is replaced
        path_.clear();
    }

  private:
    std::filesystem::path path_;
};

} // namespace host
