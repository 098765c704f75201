// Durability, and files put in place of others: at every moment a name has the old bytes or the
// new ones, and what counts as done is on the disk.
#include "system/posix/native.hpp"

namespace zev::os {

namespace {

bool sync_with(const char *directory, int (*sync)(int)) {
    const Fd fd(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && retry([&] { return sync(fd.get()); }) == 0;
}

} // namespace

// Some file systems, a server's above all, have no such call for directories.
bool sync_dir(const char *directory) {
    return sync_with(directory,
                     [](int fd) { return calls.fsync(fd) == 0 || errno == EINVAL ? 0 : -1; });
}

bool sync_dir(const char16_t *directory) {
    const Native name(directory);
    return name && sync_dir(static_cast<const char *>(name));
}

bool sync_tree(const char16_t *directory) {
    const Native name(directory);
    return name && sync_with(name, calls.syncfs);
}

bool is_replaceable(const struct stat &there) {
    if (S_ISDIR(there.st_mode)) return failed(EACCES);
    return S_ISREG(there.st_mode) || S_ISLNK(there.st_mode) || failed(ENOTSUP);
}

Replacement::Replacement(const char16_t *path, mode_t mode) {
    guarded([&] { return open(path, mode); });
}

bool Replacement::open(const char16_t *path, mode_t mode) {
    const Native name(path);
    if (!name) return false;
    path_ = name.view();
    directory_ = parent(path_);
    struct stat info;
    const bool exists = ::lstat(name, &info) == 0; // a link goes, whatever it leads to
    if (exists && !is_replaceable(info)) return false;
    if (!mode && exists && S_ISREG(info.st_mode)) mode = info.st_mode & 0777;
    std::string aside = aside_name(directory_);
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    fd_ = retry([&] { return calls.open(aside.c_str(), kFlags, mode ? 0600 : 0666); });
    if (fd_ < 0) return normalised();
    aside_ = std::move(aside);
    if (!mode || fd_mode_if_kept(fd_, mode)) return true;
    Fd(fd_).reset();
    fd_ = -1;
    return false;
}

Replacement::~Replacement() {
    const int kept = errno;
    if (file_)
        fclose(file_);
    else if (fd_ >= 0)
        close(fd_);
    if (!aside_.empty()) calls.unlink(aside_.c_str());
    errno = kept;
}

FILE *Replacement::file() {
    if (!file_ && fd_ >= 0) file_ = fdopen(fd_, "w+b");
    return file_;
}

// A write that failed earlier counts, although nothing is left to be written.
bool Replacement::flush() {
    if (!file_) return true;
    if (ferror(file_)) return failed(EIO);
    return fflush(file_) == 0;
}

bool Replacement::commit(bool durable, bool replaces) {
    if (aside_.empty()) return failed(EBADF);
    if (!flush()) return false;
    if (durable && retry([&] { return calls.fsync(fd_); }) != 0) return false;
    if (replaces ? calls.rename(aside_.c_str(), path_.c_str(), 0) != 0
                 : !rename_new(aside_.c_str(), path_.c_str()))
        return normalised();
    aside_.clear();
    return !durable || sync_dir(directory_.c_str());
}

bool replace_file(const char16_t *path, const void *bytes, size_t size, mode_t mode) {
    Replacement replacement(path, mode);
    return replacement && write_all(replacement.fd(), bytes, size) && replacement.commit();
}

} // namespace zev::os
