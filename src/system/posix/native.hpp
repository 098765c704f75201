// What the files of this folder share: paths as the system wants them, descriptors, retries.
#pragma once

#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/str.h"

#include <cerrno>
#include <new>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace zev::os {

// A path in UTF-8 with slashes, or none with errno set: null, with a drive, or too long.
class Native {
  public:
    explicit Native(const char16_t *path);
    explicit operator bool() const { return good_; }
    operator const char *() const { return text_; }
    std::string_view view() const { return text_; }
    void drop_slashes(); // trailing ones, but not the root's

  private:
    char text_[3 * Z_PATH_MAX];
    bool good_ = false;
};

// Closes at scope's end and keeps errno.
class Fd {
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd &operator=(Fd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    ~Fd() { reset(); }
    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) {
        int kept = errno;
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
        errno = kept;
    }

  private:
    int fd_;
};

template <class F> auto retry(F call) {
    decltype(call()) result;
    do result = call();
    while (result == -1 && errno == EINTR);
    return result;
}

// Runs what may throw and turns that into errno.
template <class F> bool guarded(F work) try { return work(); } catch (...) {
    errno = ENOMEM;
    return false;
}

// Sets errno and fails.
inline bool failed(int number) {
    errno = number;
    return false;
}

// Something below a file is missing; a directory opened or unlinked as a file is refused.
inline bool normalised() {
    if (errno == ENOTDIR) errno = ENOENT;
    if (errno == EISDIR) errno = EACCES;
    return false;
}

// Whether errno of a refused mode or time says that the file system keeps none, as a stick
// or a share does.
inline bool keeps_no_modes() { return errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS; }

inline bool is_dot(const char *name) {
    return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]));
}

bool put_wide(std::string_view text, char16_t *out, size_t size); // ERANGE when it doesn't fit
std::string parent(std::string_view path);                        // "." when it names none
std::string base_name(std::string_view path);
std::string real(const std::string &path); // without links; empty when it can't be resolved
// The user's directory of an XDG variable, else below his home; empty when he has none.
std::string user_directory(const char *variable, const char *below_home);
// A name in `directory` that nobody has, for what is renamed into place later. Clean-up knows
// left-overs by their beginning.
std::string aside_name(std::string_view directory);
// Whether a file may take the place of what is there: a file or a link. Else EACCES for a
// directory, ENOTSUP for a device, pipe or socket.
bool is_replaceable(const struct stat &there);
bool make_dirs(std::string path);
bool sync_dir(const char *directory);
// Rename, and where the system can't refuse an existing name by itself, the nearest to it.
bool rename_new(const char *from, const char *to);

// Copies whatever stands at `from` to the name `to`; an existing file is replaced in one step, a
// directory is filled. With `owner` the owner goes along, as far as rights allow.
bool copy_tree(const std::string &from, const std::string &to, bool owner);
bool remove_path(const std::string &path); // whatever is there; a missing one is no error

} // namespace zev::os
