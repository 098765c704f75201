// Whole trees: removing, copying, moving. Everything below the top is reached from the open
// directory above it and never through a link, so that nothing outside is touched even when
// somebody puts a link in place meanwhile; and there is no limit on the length of a path. A walk
// has the same few directories open at any depth.
#include "system/posix/descent.hpp"

#include "common/guard.hpp"

#include <cstring>
#include <vector>

#include <dirent.h>

namespace zev::os {

namespace {

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
    Descent at = {};

    bool entry(const char *name);
    bool below();
    Fd open(const char *name) const;

  private:
    bool directory(const char *name);
};

// Opens a directory that is going; with force its owner may first give himself the right to.
Fd Removal::open(const char *name) const {
    Fd fd(::openat(at.fd(), name, kOpenDir));
    struct stat info;
    if (!fd && errno == EACCES && force) {
        const Fd handle(::openat(at.fd(), name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        const std::string path = "/proc/self/fd/" + std::to_string(handle.get());
        if (handle && ::chmod(path.c_str(), 0700) == 0) fd = Fd(::openat(at.fd(), name, kOpenDir));
    }
    if (fd && force && fstat(fd.get(), &info) == 0 && (info.st_mode & 0300) != 0300)
        fd_mode(fd.get(), (info.st_mode & 07777) | 0700); // else removing below fails
    return fd;
}

bool Removal::directory(const char *name) {
    Fd fd = open(name);
    if (!fd) return errno == ENOENT;
    if (!at.enter(std::move(fd)) || !below() || !at.leave()) return false;
    return ::unlinkat(at.fd(), name, AT_REMOVEDIR) == 0 || errno == ENOENT;
}

bool Removal::entry(const char *name) {
    struct stat info;
    if (fstatat(at.fd(), name, &info, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
    if (S_ISDIR(info.st_mode)) return !recursive || directory(name);
    return !force || ::unlinkat(at.fd(), name, 0) == 0 || errno == ENOENT;
}

bool Removal::below() {
    std::vector<std::string> names;
    if (!names_in(at.fd(), &names)) return errno == ENOENT; // removed by another one meanwhile
    for (const std::string &name : names)
        if (!entry(name.c_str())) return false;
    return true;
}

} // namespace

bool remove_path(const std::string &path) { return Removal{true, true}.entry(path.c_str()); }

bool remove_dir(const char16_t *path, bool recursive, bool force) {
    Native name(path);
    if (!name) return false;
    name.drop_slashes();
    return guarded([&] {
        Removal removal{recursive, force};
        return removal.at.enter(removal.open(name)) && removal.below() && ::rmdir(name) == 0;
    });
}

bool remove_tree(const char16_t *path, bool keep_top) {
    Native name(path);
    if (!name) return false;
    name.drop_slashes();
    return guarded([&] {
        if (!keep_top) return remove_path(std::string(name.view()));
        Removal removal{true, true};
        return removal.at.enter(removal.open(name)) && removal.below();
    });
}

// ---- Copying

namespace {

// One name at a time, the same in both trees but for the tops, which are paths.
struct Copying {
    bool owner; // goes along
    Descent source = {}, target = {};

    bool node(const char *from, const char *to);

  private:
    bool directory(const char *from, const char *to, const struct stat &info);
    bool names_below();
    bool file(const char *from, const char *to, const struct stat &info) const;
    bool link(const char *from, const char *to) const;
    bool put(const std::string &aside, const char *to) const;
    bool dress(int fd, const struct stat &info) const;
};

// Owner, mode and time of what was copied, as far as the file system keeps them. A copy that runs
// with its owner's rights only stays so if he is the same one: else root's copy of a user's file
// would give him root's.
bool Copying::dress(int fd, const struct stat &info) const {
    if (owner) (void)!fchown(fd, info.st_uid, info.st_gid);
    struct stat own;
    if (fstat(fd, &own) != 0) return false;
    const bool same = own.st_uid == info.st_uid && own.st_gid == info.st_gid;
    const mode_t mode = info.st_mode & (same ? 07777u : 01777u);
    const timespec times[] = {info.st_atim, info.st_mtim};
    const bool dressed = (own.st_mode & 07777) == mode || fd_mode(fd, mode) || keeps_no_modes();
    return dressed && (futimens(fd, times) == 0 || keeps_no_modes());
}

// What stands beside its place takes it, or goes.
bool Copying::put(const std::string &aside, const char *to) const {
    if (::renameat2(target.fd(), aside.c_str(), target.fd(), to, RENAME_NOREPLACE) == 0)
        return true;
    const bool unsure = errno == EEXIST || errno == EINVAL || errno == ENOSYS;
    struct stat there;
    if (unsure &&
        (fstatat(target.fd(), to, &there, AT_SYMLINK_NOFOLLOW) != 0 || is_replaceable(there)) &&
        ::renameat(target.fd(), aside.c_str(), target.fd(), to) == 0)
        return true;
    const int kept = errno;
    ::unlinkat(target.fd(), aside.c_str(), 0);
    return failed(kept);
}

bool Copying::file(const char *from, const char *to, const struct stat &info) const {
    const Fd in(::openat(source.fd(), from, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!in) return false;
    const std::string aside = aside_name(parent(to));
    constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    const Fd made(::openat(target.fd(), aside.c_str(), kNew, 0600));
    if (!made) return false;
    if (copy_bytes(in.get(), made.get()) && dress(made.get(), info)) return put(aside, to);
    const int kept = errno;
    ::unlinkat(target.fd(), aside.c_str(), 0);
    return failed(kept);
}

bool Copying::link(const char *from, const char *to) const {
    char text[PATH_MAX];
    const ssize_t length = ::readlinkat(source.fd(), from, text, sizeof text - 1);
    if (length < 0) return false;
    text[length] = 0;
    const std::string aside = aside_name(parent(to));
    return ::symlinkat(text, target.fd(), aside.c_str()) == 0 && put(aside, to);
}

bool Copying::names_below() {
    std::vector<std::string> names;
    if (!names_in(source.fd(), &names)) return false;
    for (const std::string &name : names)
        if (!node(name.c_str(), name.c_str())) return false;
    return true;
}

// Rights come last: they may forbid what is done here, and going up.
bool Copying::directory(const char *from, const char *to, const struct stat &info) {
    const bool made = ::mkdirat(target.fd(), to, 0700) == 0;
    if (!made && errno != EEXIST) return false;
    if (!source.enter(Fd(::openat(source.fd(), from, kOpenDir))) ||
        !target.enter(Fd(::openat(target.fd(), to, kOpenDir))) || !names_below())
        return false;
    const Fd copied = target.leave();
    return copied && source.leave() && (!made || dress(copied.get(), info));
}

bool Copying::node(const char *from, const char *to) {
    struct stat info;
    if (fstatat(source.fd(), from, &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
    switch (info.st_mode & S_IFMT) {
    case S_IFDIR:
        return directory(from, to, info);
    case S_IFREG:
        return file(from, to, info);
    case S_IFLNK:
        return link(from, to);
    case S_IFIFO:
        return ::mkfifoat(target.fd(), to, info.st_mode & 07777) == 0;
    default:
        return failed(ENOTSUP); // devices and sockets hold no drawing
    }
}

// True if `path` lies in the directory `tree` or is it. As much of it as exists tells, since the
// rest is made: a tree that takes its own copy in would never end.
bool lies_in(std::string path, const std::string &tree) {
    const auto slashed = [](const std::string &name) {
        const std::string text = real(name);
        return text.ends_with('/') || text.empty() ? text : text + '/';
    };
    const std::string top = slashed(tree);
    std::string there;
    while ((there = slashed(path)).empty() && parent(path) != path) path = parent(path);
    return !top.empty() && there.starts_with(top);
}

bool is_same_file(const char *a, const char *b, int (*look)(const char *, struct stat *)) {
    struct stat left, right;
    return look(a, &left) == 0 && look(b, &right) == 0 && left.st_dev == right.st_dev &&
           left.st_ino == right.st_ino;
}

} // namespace

bool copy_tree(const std::string &from, const std::string &to, bool owner) {
    struct stat info;
    if (::lstat(from.c_str(), &info) != 0) return false;
    if (S_ISDIR(info.st_mode) && lies_in(to, from)) return failed(EINVAL);
    return Copying{owner}.node(from.c_str(), to.c_str());
}

bool make_link(const char16_t *path, const std::string &target, bool replaces) {
    const Native name(path);
    if (!name) return false;
    if (!replaces) return ::symlink(target.c_str(), name) == 0 || normalised();
    const std::string to(name.view()), aside = aside_name(parent(to));
    struct stat there;
    if (::lstat(name, &there) == 0 && !is_replaceable(there)) return false;
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
                                    : is_same_file(from, name.c_str(), ::stat))
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

// One entry of one directory, however it is spelled.
bool is_same_name(std::string_view a, std::string_view b) {
    return base_name(a) == base_name(b) &&
           is_same_file(parent(a).c_str(), parent(b).c_str(), ::stat);
}

// rename does nothing between two names of one file. By way of a third the first goes, and the
// second is there all the while, or comes where the two differ only in case.
bool join_names(const char *from, const char *to) {
    const std::string aside = aside_name(parent(to));
    if (calls.rename(from, aside.c_str(), 0) != 0) return false;
    if (calls.rename(aside.c_str(), to, 0) == 0)
        return calls.unlink(aside.c_str()) == 0 || errno == ENOENT;
    const int kept = errno;
    calls.rename(aside.c_str(), from, 0);
    return failed(kept);
}

bool move_across(const std::string &from, const std::string &to, bool replace) {
    if (!replace && !missing(to.c_str())) return failed(EEXIST);
    const std::string directory = parent(to), aside = aside_name(directory);
    const Fd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    bool done = fd && copy_tree(from, aside, true) && calls.syncfs(fd.get()) == 0;
    done = done && (replace ? calls.rename(aside.c_str(), to.c_str(), 0) == 0
                            : rename_new(aside.c_str(), to.c_str()));
    // The source goes only when the copy has its name for good.
    if (done) return sync_dir(directory.c_str()) && remove_path(from);
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
    return guarded([&] {
        struct stat there;
        if (replace && ::lstat(to, &there) == 0) {
            const bool shared = S_ISDIR(there.st_mode) || there.st_nlink > 1;
            const bool same = shared && is_same_file(from, to, ::lstat);
            if (same && is_same_name(from.view(), to.view())) return true;
            if (!is_replaceable(there)) return false;
            if (same) return join_names(from, to);
        }
        if (replace ? calls.rename(from, to, 0) == 0 : rename_new(from, to)) return true;
        if (errno == EEXIST) return is_same_name(from.view(), to.view()) || failed(EEXIST);
        return errno == EXDEV && move_across(from.view().data(), to.view().data(), replace);
    });
}

} // namespace zev::os
