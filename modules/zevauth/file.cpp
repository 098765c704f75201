// Whole files of the store, with the calls that make a replacement durable: the new bytes are on
// the disk before their name, and the name before anybody is told.
#include "file.hpp"

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zevauth {

namespace {

constexpr int64_t kSizeMax = 64 << 20; // of a million users; a file to be held in memory
constexpr int64_t kTick = 20'000'000;  // nanoseconds, above the steps in which files are stamped

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        const int kept = errno;
        if (fd_ >= 0) close(fd_);
        errno = kept;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }

  private:
    int fd_;
};

std::string native(const Text &path) {
    const char *name = zStrtoutf8(path.c_str());
    return name ? name : "";
}

std::string directory_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == path.npos ? "." : path.substr(0, slash);
}

Stamp stamp_of(const struct stat &info) {
    return {true,
            static_cast<uint64_t>(info.st_dev),
            info.st_ino,
            info.st_size,
            info.st_mtim.tv_sec,
            info.st_mtim.tv_nsec};
}

// What a file that stands in nobody's place is made after: the one that it replaces, else its
// directory.
bool own_as(int fd, const std::string &path, const std::string &directory, mode_t mode) {
    struct stat model;
    const bool replaces = stat(path.c_str(), &model) == 0;
    if (!replaces && stat(directory.c_str(), &model) != 0) return false;
    if (geteuid() == 0 && fchown(fd, model.st_uid, model.st_gid) != 0) return false;
    return mode || !replaces || fchmod(fd, model.st_mode & 0777) == 0;
}

bool write_all(int fd, const std::string &bytes) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) done += static_cast<size_t>(count);
    }
    return true;
}

bool sync_directory(const std::string &directory) {
    const Descriptor fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && (fsync(fd.get()) == 0 || errno == EINVAL); // which some file systems don't know
}

} // namespace

bool Stamp::is_settled() const {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t age = now.tv_sec - seconds;
    if (!exists || age > 1 || age < -1) return true;
    return llabs(age * 1'000'000'000 + now.tv_nsec - nanoseconds) > kTick;
}

bool look(const Text &path, Stamp *stamp) {
    struct stat info;
    *stamp = {};
    if (stat(native(path).c_str(), &info) != 0) return errno == ENOENT;
    *stamp = stamp_of(info);
    return true;
}

bool read_file(const Text &path, std::string *bytes, Stamp *stamp) {
    struct stat info;
    *stamp = {};
    const Descriptor fd(open(native(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) return errno == ENOENT;
    if (fstat(fd.get(), &info) != 0) return false;
    if (!S_ISREG(info.st_mode) || info.st_size > kSizeMax) {
        errno = EFBIG;
        return false;
    }
    bytes->resize(static_cast<size_t>(info.st_size));
    for (size_t done = 0; done < bytes->size();) {
        const ssize_t count = read(fd.get(), bytes->data() + done, bytes->size() - done);
        if (count < 0 && errno != EINTR) return false;
        if (count == 0) bytes->resize(done); // cut short by somebody: its stamp differs by now
        if (count > 0) done += static_cast<size_t>(count);
    }
    *stamp = stamp_of(info);
    return true;
}

bool can_replace(const Text &path) {
    return access(directory_of(native(path)).c_str(), W_OK | X_OK) == 0;
}

bool replace_file(const Text &path, const std::string &bytes, mode_t mode) {
    const std::string name = native(path), directory = directory_of(name);
    const std::string aside = directory + "/." + name.substr(name.rfind('/') + 1) + ".new";
    unlink(aside.c_str());
    const Descriptor fd(
        open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode ? mode : 0666));
    if (!fd) return false;
    if (own_as(fd.get(), name, directory, mode) && write_all(fd.get(), bytes) &&
        fsync(fd.get()) == 0 && rename(aside.c_str(), name.c_str()) == 0)
        return sync_directory(directory);
    const int kept = errno;
    unlink(aside.c_str());
    errno = kept;
    return false;
}

} // namespace zevauth
