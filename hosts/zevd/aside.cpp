// The directories of imports. What holds: the lock goes with its process, and only the holder of a
// directory's lock removes it, while the name still stands for what he locked.
#include "aside.hpp"

#include "service.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kLead = "~import-";

// The directory, locked; -1 where another holds it, it is gone, or its file system knows no such
// lock.
int hold(const std::string &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat locked, named;
    if (flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &locked) == 0 &&
        lstat(path.c_str(), &named) == 0 && locked.st_ino == named.st_ino)
        return fd;
    close(fd);
    return -1;
}

} // namespace

// Between the two steps a sweep may take it for a left-over.
bool Aside::make() {
    path_ = pattern_;
    if (!mkdtemp(path_.data())) fail_system(pattern_);
    fd_ = hold(path_);
    return fd_ >= 0 || (errno != EWOULDBLOCK && access(path_.c_str(), F_OK) == 0);
}

Aside::Aside(const std::string &repos) : pattern_(repos + "/" + kLead + "XXXXXX") {
    fs::create_directories(repos);
    sweep_imports(repos);
    while (!make()) continue;
}

Aside::~Aside() {
    std::error_code error;
    fs::remove_all(path_, error);
    if (fd_ >= 0) close(fd_);
}

void each_left_import(const std::string &repos,
                      const std::function<void(const std::string &)> &work) {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(repos, error))
        if (entry.path().filename().string().starts_with(kLead))
            paths.push_back(entry.path().string());
    for (const std::string &path : paths) {
        const int fd = hold(path);
        if (fd < 0) continue;
        work(path);
        close(fd);
    }
}

void sweep_imports(const std::string &repos) {
    each_left_import(repos, [](const std::string &path) {
        std::error_code error;
        fs::remove_all(path, error);
    });
}

} // namespace host
