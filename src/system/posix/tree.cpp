// Whole trees: removing, copying, moving. Everything below the top is reached from the open
// directory above it and never through a link, so that nothing outside is touched even when
// somebody puts a link in place meanwhile; and there is no limit on the length of a path.
#include "system/posix/native.hpp"

#include "common/guard.hpp"

#include <cstring>
#include <vector>

#include <dirent.h>

namespace zev::os {

namespace {

constexpr int kOpenDir = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The names in an open directory, without . and ..
bool names_in(int fd, std::vector<std::string> *names) {
    const int copy = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *dir = copy < 0 ? nullptr : fdopendir(copy);
    if (!dir) return Fd(copy), false;
    const Finally close([=] { closedir(dir); });
    dirent *entry;
    while (errno = 0, (entry = readdir(dir)))
        if (!is_dot(entry->d_name)) names->emplace_back(entry->d_name);
    const int kept = errno;
    return !kept || failed(kept);
}

// ---- Removal

struct Removal {
    bool recursive; // directories
    bool force;     // all else, and without a look at modes

    bool below(int dir) const;
    bool directory(int dir, const char *name) const;
    bool entry(int dir, const char *name) const;
    Fd open(int dir, const char *name) const;
};

// Opens a directory that is going; with force its owner may first give himself the right to.
Fd Removal::open(int dir, const char *name) const {
    Fd fd(::openat(dir, name, kOpenDir));
    struct stat info;
    if (!fd && errno == EACCES && force) {
        const Fd handle(::openat(dir, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        const std::string path = "/proc/self/fd/" + std::to_string(handle.get());
        if (handle && ::chmod(path.c_str(), 0700) == 0) fd = Fd(::openat(dir, name, kOpenDir));
    }
    if (fd && force && fstat(fd.get(), &info) == 0 && (info.st_mode & 0300) != 0300)
        (void)!fchmod(fd.get(), (info.st_mode & 07777) | 0700); // else removing below fails
    return fd;
}

bool Removal::directory(int dir, const char *name) const {
    const Fd fd = open(dir, name);
    if (!fd) return errno == ENOENT;
    if (!below(fd.get())) return false;
    return ::unlinkat(dir, name, AT_REMOVEDIR) == 0 || errno == ENOENT;
}

bool Removal::entry(int dir, const char *name) const {
    struct stat info;
    if (fstatat(dir, name, &info, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
    if (S_ISDIR(info.st_mode)) return !recursive || directory(dir, name);
    return !force || ::unlinkat(dir, name, 0) == 0 || errno == ENOENT;
}

bool Removal::below(int dir) const {
    std::vector<std::string> names;
    if (!names_in(dir, &names)) return false;
    for (const std::string &name : names)
        if (!entry(dir, name.c_str())) return false;
    return true;
}

} // namespace

bool remove_path(const std::string &path) {
    return Removal{true, true}.entry(AT_FDCWD, path.c_str());
}

bool remove_dir(const char16_t *path, bool recursive, bool force) {
    Native name(path);
    if (!name) return false;
    name.drop_slashes();
    return guarded([&] {
        const Removal removal{recursive, force};
        const Fd fd = removal.open(AT_FDCWD, name);
        return fd && removal.below(fd.get()) && ::rmdir(name) == 0;
    });
}

bool remove_tree(const char16_t *path, bool keep_top) {
    Native name(path);
    if (!name) return false;
    name.drop_slashes();
    return guarded([&] {
        if (!keep_top) return remove_path(std::string(name.view()));
        const Removal removal{true, true};
        const Fd fd = removal.open(AT_FDCWD, name);
        return fd && removal.below(fd.get());
    });
}

// ---- Copying

namespace {

struct Copying {
    bool owner; // goes along

    bool node(int from_dir, const char *from, int to_dir, const char *to) const;

  private:
    bool directory(int from_dir, const char *from, int to_dir, const char *to,
                   const struct stat &info) const;
    bool file(int from_dir, const char *from, int to_dir, const char *to,
              const struct stat &info) const;
    bool link(int from_dir, const char *from, int to_dir, const char *to) const;
    bool dress(int fd, const struct stat &info) const;
};

// Owner, mode and time of what was copied. A copy that runs with its owner's rights only stays so
// if he is the same one: else root's copy of a user's file would give him root's.
bool Copying::dress(int fd, const struct stat &info) const {
    if (owner) (void)!fchown(fd, info.st_uid, info.st_gid);
    struct stat own;
    if (fstat(fd, &own) != 0) return false;
    const bool same = own.st_uid == info.st_uid && own.st_gid == info.st_gid;
    const mode_t mode = info.st_mode & (same ? 07777u : 01777u);
    const timespec times[] = {info.st_atim, info.st_mtim};
    return fchmod(fd, mode) == 0 && futimens(fd, times) == 0;
}

bool Copying::file(int from_dir, const char *from, int to_dir, const char *to,
                   const struct stat &info) const {
    const Fd source(::openat(from_dir, from, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!source) return false;
    const std::string aside = aside_name(parent(to));
    const Fd target(::openat(to_dir, aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!target) return false;
    if (copy_bytes(source.get(), target.get()) && dress(target.get(), info) &&
        ::renameat(to_dir, aside.c_str(), to_dir, to) == 0)
        return true;
    const int kept = errno;
    ::unlinkat(to_dir, aside.c_str(), 0);
    return failed(kept);
}

bool Copying::link(int from_dir, const char *from, int to_dir, const char *to) const {
    char text[PATH_MAX];
    const ssize_t length = ::readlinkat(from_dir, from, text, sizeof text - 1);
    if (length < 0) return false;
    text[length] = 0;
    const std::string aside = aside_name(parent(to));
    if (::symlinkat(text, to_dir, aside.c_str()) != 0) return false;
    if (::renameat(to_dir, aside.c_str(), to_dir, to) == 0) return true;
    const int kept = errno;
    ::unlinkat(to_dir, aside.c_str(), 0);
    return failed(kept);
}

bool Copying::directory(int from_dir, const char *from, int to_dir, const char *to,
                        const struct stat &info) const {
    const bool made = ::mkdirat(to_dir, to, 0700) == 0;
    if (!made && errno != EEXIST) return false;
    const Fd source(::openat(from_dir, from, kOpenDir));
    const Fd target(source ? ::openat(to_dir, to, kOpenDir) : -1);
    std::vector<std::string> names;
    if (!target || !names_in(source.get(), &names)) return false;
    for (const std::string &name : names)
        if (!node(source.get(), name.c_str(), target.get(), name.c_str())) return false;
    return !made || dress(target.get(), info);
}

bool Copying::node(int from_dir, const char *from, int to_dir, const char *to) const {
    struct stat info;
    if (fstatat(from_dir, from, &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
    switch (info.st_mode & S_IFMT) {
    case S_IFDIR:
        return directory(from_dir, from, to_dir, to, info);
    case S_IFREG:
        return file(from_dir, from, to_dir, to, info);
    case S_IFLNK:
        return link(from_dir, from, to_dir, to);
    case S_IFIFO:
        return ::mkfifoat(to_dir, to, info.st_mode & 07777) == 0;
    default:
        return failed(ENOTSUP); // devices and sockets hold no drawing
    }
}

// True if `path` lies in the directory `tree` or is it. As much of it as exists tells, since the
// rest is made: a tree that takes its own copy in would never end.
bool lies_in(std::string path, const std::string &tree) {
    const auto real = [](const std::string &name) {
        const Malloced<char> text(realpath(name.c_str(), nullptr));
        std::string copy(text ? text.get() : "");
        return copy.ends_with('/') || copy.empty() ? copy : copy + '/';
    };
    const std::string top = real(tree);
    std::string there;
    while ((there = real(path)).empty() && parent(path) != path) path = parent(path);
    return !top.empty() && there.starts_with(top);
}

bool same_file(const char *a, const char *b) {
    struct stat left, right;
    return ::stat(a, &left) == 0 && ::stat(b, &right) == 0 && left.st_dev == right.st_dev &&
           left.st_ino == right.st_ino;
}

} // namespace

bool copy_tree(const std::string &from, const std::string &to, bool owner) {
    struct stat info;
    if (::lstat(from.c_str(), &info) != 0) return false;
    if (S_ISDIR(info.st_mode) && lies_in(to, from)) return failed(EINVAL);
    return Copying{owner}.node(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str());
}

bool make_link(const char16_t *path, const std::string &target) {
    const Native name(path);
    if (!name) return false;
    const std::string to(name.view()), aside = aside_name(parent(to));
    if (::symlink(target.c_str(), aside.c_str()) != 0) return false;
    if (::rename(aside.c_str(), to.c_str()) == 0) return true;
    const int kept = errno;
    ::unlink(aside.c_str());
    return failed(kept);
}

bool copy(const char16_t *from_path, const char16_t *to_path) {
    Native from(from_path), to(to_path);
    if (!from || !to) return false;
    from.drop_slashes();
    to.drop_slashes();
    return guarded([&] {
        struct stat source, target;
        if (::lstat(from, &source) != 0) return normalised();
        std::string name(to.view());
        if (::stat(to, &target) == 0 && S_ISDIR(target.st_mode))
            name += '/' + base_name(from.view());
        if (S_ISDIR(source.st_mode) ? lies_in(name, from.view().data())
                                    : same_file(from, name.c_str()))
            return failed(EINVAL);
        return make_dirs(parent(name)) &&
               (copy_tree(from.view().data(), name, false) || normalised());
    });
}

// ---- Moving

namespace {

bool missing(const char *path) {
    struct stat info;
    return ::lstat(path, &info) != 0 && errno == ENOENT;
}

bool move_across(const std::string &from, const std::string &to, bool replace) {
    if (!replace && !missing(to.c_str())) return failed(EEXIST);
    const std::string directory = parent(to), aside = aside_name(directory);
    const Fd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    bool done = fd && copy_tree(from, aside, true) && calls.syncfs(fd.get()) == 0;
    done = done && (replace ? calls.rename(aside.c_str(), to.c_str(), 0) == 0
                            : rename_new(aside.c_str(), to.c_str()));
    // The source goes only when the copy has its name for good.
    if (done) return calls.fsync(fd.get()) == 0 && remove_path(from);
    const int kept = errno;
    remove_path(aside);
    return failed(kept);
}

} // namespace

bool rename_new(const char *from, const char *to) {
    if (calls.rename(from, to, RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    struct stat info;
    if (::lstat(from, &info) != 0) return false;
    if (!S_ISDIR(info.st_mode)) {
        if (calls.link(from, to) == 0) return calls.unlink(from) == 0;
        if (errno == EEXIST) return false;
    }
    return missing(to) ? calls.rename(from, to, 0) == 0 : failed(EEXIST);
}

bool move(const char16_t *from_path, const char16_t *to_path, bool replace) {
    Native from(from_path), to(to_path);
    if (!from || !to) return false;
    from.drop_slashes();
    to.drop_slashes();
    struct stat info;
    // rename would put a directory in place of an empty one.
    if (replace && ::lstat(to, &info) == 0 && S_ISDIR(info.st_mode)) return failed(EACCES);
    if (replace ? calls.rename(from, to, 0) == 0 : rename_new(from, to)) return true;
    if (errno != EXDEV) return false;
    return guarded([&] { return move_across(from.view().data(), to.view().data(), replace); });
}

} // namespace zev::os
