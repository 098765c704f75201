// Files by descriptor and by name, directories, and the calls of the system that tests replace.
// A path reaches the system through Native only.
#include "system/clock.hpp"
#include "system/os.hpp"

#include "common/guard.hpp"
#include "system/posix/native.hpp"

#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <stdio_ext.h>
#include <sys/random.h>
#include <time.h>

namespace zev::os {

namespace {

int call_open(const char *path, int flags, mode_t mode) { return ::open(path, flags, mode); }
int call_rename(const char *from, const char *to, unsigned flags) {
    return flags ? ::renameat2(AT_FDCWD, from, AT_FDCWD, to, flags) : ::rename(from, to);
}
int64_t call_copy_range(int from, int to, size_t size) {
    return ::copy_file_range(from, nullptr, to, nullptr, size, 0);
}
int64_t call_now() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return nanoseconds_of({now.tv_sec, now.tv_nsec});
}
int64_t call_steady() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return nanoseconds_of({now.tv_sec, now.tv_nsec});
}
void call_random(void *bytes, size_t size) {
    auto at = static_cast<char *>(bytes);
    while (size) {
        const ssize_t count = getrandom(at, size, 0);
        if (count <= 0) continue; // only a signal can be the reason
        at += count;
        size -= static_cast<size_t>(count);
    }
}

} // namespace

Calls calls = {
    .open = call_open,
    .write = ::write,
    .ftruncate = ::ftruncate,
    .fchmod = ::fchmod,
    .copy_range = call_copy_range,
    .rename = call_rename,
    .link = ::link,
    .unlink = ::unlink,
    .mkdir = ::mkdir,
    .fsync = ::fsync,
    .fdatasync = ::fdatasync,
    .syncfs = ::syncfs,
    .now = call_now,
    .steady = call_steady,
    .random = call_random,
};

// ---- Paths

Native::Native(const char16_t *path) {
    text_[0] = 0;
    const uint64_t count = path ? zStrnlenW(path, Z_PATH_MAX - 1) : 0;
    const bool letter = count > 1 && ((path[0] | 0x20) >= u'a' && (path[0] | 0x20) <= u'z');
    if (!path) {
        errno = EINVAL;
    } else if (count == Z_PATH_MAX - 1) {
        errno = ENAMETOOLONG;
    } else if (letter && path[1] == u':') {
        errno = ENOENT;
    } else {
        text_[utf8_from_wide(path, count, text_)] = 0;
        for (char *at = text_; *at; ++at)
            if (*at == '\\') *at = '/';
        good_ = true;
    }
}

void Native::drop_slashes() {
    for (size_t end = strlen(text_); end > 1 && text_[end - 1] == '/'; --end) text_[end - 1] = 0;
}

bool put_wide(std::string_view text, char16_t *out, size_t size) {
    const uint64_t count = wide_from_utf8(text.data(), text.size(), nullptr);
    if (count >= size) return failed(ERANGE);
    out[wide_from_utf8(text.data(), text.size(), out)] = 0;
    return true;
}

namespace {

std::string_view without_slashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

} // namespace

std::string parent(std::string_view path) {
    path = without_slashes(path);
    const size_t slash = path.rfind('/');
    if (slash == path.npos) return ".";
    return std::string(without_slashes(path.substr(0, slash + 1)));
}

std::string base_name(std::string_view path) {
    path = without_slashes(path);
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string real(const std::string &path) {
    const Narrow text(realpath(path.c_str(), nullptr));
    return text ? text.get() : "";
}

std::string aside_name(std::string_view directory) {
    uint8_t bytes[8];
    calls.random(bytes, sizeof bytes);
    std::string name(directory);
    name += "/tmp_zev_";
    for (uint8_t byte : bytes) {
        name += "0123456789abcdef"[byte >> 4];
        name += "0123456789abcdef"[byte & 15];
    }
    return name;
}

// ---- Opening

bool Mode::parse(const char16_t *letters, Mode *mode) {
    Mode parsed;
    while (letters && *letters == u' ') ++letters;
    const char16_t kind = letters ? *letters : 0;
    if (kind != u'r' && kind != u'w' && kind != u'a') return failed(EINVAL);
    parsed.read = kind == u'r';
    parsed.write = parsed.create = kind != u'r';
    parsed.truncate = kind == u'w';
    parsed.append = kind == u'a';
    // What follows a comma names an encoding for wide stdio, which is never used.
    for (++letters; *letters && *letters != u','; ++letters) {
        switch (*letters) {
        case u'+':
            parsed.read = parsed.write = true;
            break;
        case u'x':
            parsed.exclusive = true;
            break;
        case u'S':
            parsed.sequential = true;
            break;
        case u'R':
            parsed.random = true;
            break;
        case u'D':
            parsed.remove = true;
            break;
        case u'b':
        case u't':
        case u'T':
        case u'c':
        case u'n':
        case u'N':
        case u' ':
            break;
        default:
            return failed(EINVAL);
        }
    }
    *mode = parsed;
    return true;
}

const char *Mode::stdio() const {
    if (append) return read ? "a+b" : "ab";
    if (!write) return "rb";
    return read ? "r+b" : "wb"; // fdopen never truncates
}

int open_fd(const char16_t *path, const Mode &mode, mode_t create) {
    const Native name(path);
    if (!name) return -1;
    int flags = O_CLOEXEC | O_NOCTTY | (mode.no_link ? O_NOFOLLOW : 0);
    flags |= mode.write ? (mode.read ? O_RDWR : O_WRONLY) : O_RDONLY;
    if (mode.append) flags |= O_APPEND;
    if (mode.create) flags |= O_CREAT | (mode.exclusive ? O_EXCL : 0);
    if (mode.truncate) flags |= O_TRUNC;
    Fd fd(retry([&] { return calls.open(name, flags, create); }));
    struct stat info;
    if (!fd) return normalised(), -1;
    if (!mode.write && fstat(fd.get(), &info) == 0 && S_ISDIR(info.st_mode))
        return failed(EACCES), -1;
    if (mode.sequential) posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    if (mode.random) posix_fadvise(fd.get(), 0, 0, POSIX_FADV_RANDOM);
    if (mode.remove) calls.unlink(name);
    return fd.release();
}

namespace {

bool is_trusted_file(int fd) {
    struct stat info;
    if (fstat(fd, &info) != 0) return false;
    const bool own = info.st_uid == geteuid() || info.st_uid == 0;
    return (S_ISREG(info.st_mode) && info.st_nlink == 1 && own) || failed(EACCES);
}

constexpr int kTrusted = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Not in another user's directory, as root could: he is refused what isn't his.
int make_trusted(const Native &name) {
    struct stat above, made;
    if (::stat(parent(name.view()).c_str(), &above) != 0) return -1;
    if (above.st_uid != geteuid() && above.st_uid != 0) return failed(EACCES), -1;
    Fd fd(retry([&] { return calls.open(name, kTrusted | O_CREAT | O_EXCL, 0666); }));
    if (!fd || fstat(fd.get(), &made) != 0) return -1;
    const mode_t mode = (made.st_mode & 0777) | (above.st_mode & 0066);
    return fd_mode_if_kept(fd.get(), mode) ? fd.release() : -1;
}

} // namespace

// What exists is never created, so that no link leads to a new file elsewhere, and nobody is waited
// for, as the writer of a pipe would wait for its reader.
int open_trusted(const char16_t *path) {
    constexpr int kRounds = 10; // against others who make and remove it
    const Native name(path);
    if (!name) return -1;
    for (int round = 0; round < kRounds; ++round) {
        Fd fd(retry([&] { return calls.open(name, kTrusted, 0); }));
        if (fd) return is_trusted_file(fd.get()) ? fd.release() : -1;
        if (errno == ELOOP || errno == ENXIO) return failed(EACCES), -1;
        if (errno != ENOENT) return normalised(), -1;
        guarded([&] { return fd.reset(make_trusted(name)), bool(fd); });
        if (fd) return fd.release();
        if (errno != EEXIST) return normalised(), -1;
    }
    return failed(EACCES), -1;
}

bool is_trusted_way(const char16_t *path) {
    const Native name(path);
    struct stat info;
    if (!name || ::lstat("/", &info) != 0) return false;
    const uid_t system = info.st_uid; // root, by whatever number a namespace gives him
    return geteuid() != 0 || guarded([&] {
               const std::string way(name.view());
               for (size_t end = 0; end != way.npos;) {
                   end = way.find('/', end + 1);
                   if (::lstat(way.substr(0, end).c_str(), &info) != 0) return errno == ENOENT;
                   if (info.st_uid != 0 && info.st_uid != system) return failed(EACCES);
               }
               return true;
           });
}

FILE *open(const char16_t *path, const char16_t *letters) {
    Mode mode;
    if (!Mode::parse(letters, &mode)) return nullptr;
    const int fd = open_fd(path, mode);
    return fd < 0 ? nullptr : adopt(fd, mode.stdio());
}

FILE *adopt(int fd, const char *stdio) {
    FILE *file = fdopen(fd, stdio);
    if (!file) close_fd(fd);
    return file;
}

FILE *temp_file() {
    char16_t directory[Z_PATH_MAX];
    if (!temp_dir(directory, Z_PATH_MAX)) return nullptr;
    std::string name = to_utf8(directory);
    Fd fd(retry([&] { return calls.open(name.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); }));
    if (!fd) { // a file system without nameless files
        name += "zevXXXXXX";
        fd.reset(mkostemp(name.data(), O_CLOEXEC));
        if (fd) ::unlink(name.c_str());
    }
    return fd ? adopt(fd.release(), "w+b") : nullptr;
}

int temp_named(char16_t *path, const char16_t *directory, const char16_t *prefix) {
    Native name(directory);
    if (!name) return -1;
    name.drop_slashes();
    std::string text(name.view());
    if (text.empty()) return failed(ENOENT), -1;
    if (text.back() != '/') text += '/';
    if (prefix) text += to_utf8(prefix);
    text += "XXXXXX.tmp";
    Fd fd(mkostemps(text.data(), 4, O_CLOEXEC));
    if (!fd) return normalised(), -1;
    if (!put_wide(text, path, Z_PATH_MAX - 1)) {
        ::unlink(text.c_str());
        return failed(ENAMETOOLONG), -1;
    }
    return fd.release();
}

int open_dir(const char16_t *path) {
    const Native name(path);
    if (!name) return -1;
    return retry([&] { return ::open(name, O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

// A name that went is told with something behind it, and one that was given anew leads elsewhere.
bool place_of(int fd, std::u16string *path) {
    const auto look = [&] {
        char text[3 * Z_PATH_MAX];
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const ssize_t length = ::readlink(link.c_str(), text, sizeof text);
        if (length < 0) return false;
        const std::string name(text, static_cast<size_t>(length));
        struct stat open, named;
        if (fstat(fd, &open) != 0 || ::lstat(name.c_str(), &named) != 0) return false;
        if (open.st_ino != named.st_ino || open.st_dev != named.st_dev) return failed(ENOENT);
        *path = to_wide(name);
        return true;
    };
    return guarded(look);
}

// ---- Bytes

void close_fd(int fd) { Fd(fd).reset(); }

bool fd_stat(int fd, struct stat *out) { return fstat(fd, out) == 0; }
bool fd_mode(int fd, mode_t mode) { return calls.fchmod(fd, mode) == 0; }
bool fd_mode_if_kept(int fd, mode_t mode) {
    struct stat info;
    if (fstat(fd, &info) == 0 && (info.st_mode & 07777) == mode) return true;
    return fd_mode(fd, mode) || keeps_no_modes();
}
bool fd_rewind(int fd) { return lseek(fd, 0, SEEK_SET) == 0; }
bool fd_sync(int fd) {
    return retry([&] { return calls.fdatasync(fd); }) == 0;
}
// Where the system has no such call, or refuses it, all is left to the sync.
void start_sync(int fd) {
    const int kept = errno;
    ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
    errno = kept;
}
bool fd_truncate(int fd, int64_t size) {
    return retry([&] { return calls.ftruncate(fd, size); }) == 0 && fd_rewind(fd);
}

bool write_all(int fd, const void *bytes, size_t size) {
    auto at = static_cast<const char *>(bytes);
    while (size) {
        const ssize_t count = retry([&] { return calls.write(fd, at, size); });
        if (count < 0) return false;
        at += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

bool copy_bytes(int from, int to) {
    constexpr size_t kAtOnce = 1u << 30;
    int64_t count;
    // In the kernel, and without moving a byte where the file system shares blocks.
    while ((count = retry([&] { return calls.copy_range(from, to, kAtOnce); })) > 0) continue;
    const bool unable = count < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS ||
                                      errno == EOPNOTSUPP || errno == EBADF);
    if (count < 0 && !unable) return false;
    // The rest by hand: where the kernel can't, and files whose size it doesn't know.
    char block[128 * 1024];
    ssize_t got;
    while ((got = retry([&] { return ::read(from, block, sizeof block); })) > 0)
        if (!write_all(to, block, static_cast<size_t>(got))) return false;
    return got == 0;
}

bool truncate(FILE *file, int64_t size) {
    if (fflush(file) != 0) return false;
    return retry([&] { return calls.ftruncate(fileno(file), size); }) == 0;
}

bool size(FILE *file, uint64_t *size) {
    struct stat info;
    if (__fpending(file) && fflush(file) != 0) return false;
    if (fstat(fileno(file), &info) != 0) return false;
    *size = static_cast<uint64_t>(info.st_size);
    return true;
}

bool seek(FILE *file, int64_t offset, int whence) { return fseeko(file, offset, whence) == 0; }
int64_t tell(FILE *file) { return ftello(file); }

bool rewind(FILE *file) {
    if (!seek(file, 0, SEEK_SET)) return false;
    clearerr(file);
    return true;
}

// ---- Files by name

bool stat(const char16_t *path, struct stat *out) {
    const Native name(path);
    return name && (::stat(name, out) == 0 || normalised());
}

bool lstat(const char16_t *path, struct stat *out) {
    const Native name(path);
    return name && (::lstat(name, out) == 0 || normalised());
}

bool readable(const char16_t *path) {
    const Native name(path);
    return name && (eaccess(name, R_OK) == 0 || normalised());
}

bool writable(const char16_t *path) {
    const Native name(path);
    struct stat info;
    if (!name) return false;
    if (eaccess(name, W_OK) != 0 || ::stat(name, &info) != 0) return normalised();
    return info.st_mode & 0222 || failed(EACCES);
}

bool set_readonly(const char16_t *path, bool readonly) {
    const Native name(path);
    struct stat info;
    if (!name) return false;
    if (::stat(name, &info) != 0) return normalised();
    const mode_t mode = info.st_mode & 07777;
    const mode_t wanted = readonly ? mode & ~0222u : mode | 0600;
    // A change of mode, even to the same one, moves the file's ctime, and every status hashes it.
    return wanted == mode || ::chmod(name, wanted) == 0;
}

bool unlink(const char16_t *path) {
    const Native name(path);
    return name && (calls.unlink(name) == 0 || normalised());
}

bool sync_file(const char16_t *path) {
    const Owned<FILE, fclose> file(open(path, u"rb"));
    return file && fd_sync(fileno(file.get()));
}

bool link(const char16_t *from, const char16_t *to) {
    const Native source(from), target(to);
    return source && target && calls.link(source, target) == 0;
}

bool real_path(const char16_t *path, std::u16string *out) {
    const Native name(path);
    const std::string text = name ? real(std::string(name.view())) : std::string();
    if (text.empty()) return normalised();
    *out = to_wide(text);
    return true;
}

// ---- Directories

bool make_dir(const char16_t *path, mode_t mode) {
    const Native name(path);
    return name && calls.mkdir(name, mode) == 0;
}

namespace {

bool made_or_there(const char *path) {
    if (calls.mkdir(path, 0777) == 0 || errno == EEXIST) return true;
    struct stat info; // a root that may not be written to
    return errno == EACCES &&
           ((::stat(path, &info) == 0 && S_ISDIR(info.st_mode)) || failed(EACCES));
}

} // namespace

bool make_dirs(std::string path) {
    if (made_or_there(path.c_str())) return true;
    if (errno != ENOENT) return false;
    for (size_t slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1)) {
        path[slash] = 0;
        if (!made_or_there(path.c_str())) return false;
        path[slash] = '/';
    }
    return made_or_there(path.c_str());
}

bool make_dirs(const char16_t *path) {
    const Native name(path);
    return name && guarded([&] { return make_dirs(std::string(name.view())); });
}

bool remove_dir(const char16_t *path) {
    const Native name(path);
    return name && ::rmdir(name) == 0;
}

bool read_dir(const char16_t *path, std::vector<Name> *names) {
    const Native name(path);
    DIR *dir = name ? opendir(name) : nullptr;
    if (!dir) return false;
    const bool done = guarded([&] {
        dirent *entry;
        while (errno = 0, (entry = readdir(dir))) {
            struct stat info;
            bool directory = entry->d_type == DT_DIR;
            if (entry->d_type == DT_UNKNOWN)
                directory = fstatat(dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                            S_ISDIR(info.st_mode);
            names->push_back({to_wide(entry->d_name), directory});
            // As a separator it would make the name that of another file.
            for (char16_t &unit : names->back().text)
                if (unit == u'\\') unit = 0xFFFD;
        }
        return errno == 0;
    });
    const int kept = errno;
    closedir(dir);
    errno = kept;
    return done;
}

int dir_empty(const char16_t *path) {
    const Native name(path);
    DIR *dir = name ? opendir(name) : nullptr;
    if (!dir) return -1;
    bool empty = true;
    errno = 0;
    while (dirent *entry = empty ? readdir(dir) : nullptr) empty = is_dot(entry->d_name);
    const int kept = errno;
    closedir(dir);
    return kept ? failed(kept), -1 : empty;
}

} // namespace zev::os
