// Sharing modes on a system without them. A holder's access and what he denies to others are
// locks of the open file description on four bytes that lie far behind any content:
//
//   2^62 + 0  reads        held by who reads
//        + 1  writes       held by who writes
//        + 2  denies reads
//        + 3  denies writes
//
// Such locks bind threads and processes alike, die with the holder, and stay when something else
// in the process closes the same file. What always holds:
//
// 1. A grant is set before the others' are looked at, so of two openers at least one sees the
//    other and there are never two grants.
// 2. Nothing in the file changes before the grant stands: truncation comes last.
// 3. The file at the path is the one that was locked. A holder may delete the file, first the
//    name, then the lock; who was waiting for that lock starts over with the new file.
// 4. Without locks there is no opening: a file system that can't lock fails.
#include "zev/share.h"
#include "system/posix/native.hpp"

#include <csignal>
#include <ctime>

#include <sys/file.h>

namespace zev::os {

namespace {

enum : int { kReads, kWrites, kDeniesReads, kDeniesWrites, kBytes };
constexpr off_t kOffset = off_t{1} << 62;
constexpr int kRounds = 4;     // against openers who only looked
constexpr int kNewFiles = 100; // against holders who delete what they held

struct flock lock_at(short type, int byte, int count) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = kOffset + byte;
    lock.l_len = count;
    return lock;
}

enum class Grant { given, refused, failed };

Grant set(int fd, short type, int byte, int count) {
    struct flock lock = lock_at(type, byte, count);
    if (retry([&] { return fcntl(fd, F_OFD_SETLK, &lock); }) == 0) return Grant::given;
    return errno == EAGAIN || errno == EACCES ? Grant::refused : Grant::failed;
}

Grant test(int fd, int byte) {
    struct flock lock = lock_at(F_WRLCK, byte, 1);
    if (retry([&] { return fcntl(fd, F_OFD_GETLK, &lock); }) != 0) return Grant::failed;
    return lock.l_type == F_UNLCK ? Grant::given : Grant::refused;
}

struct Claim {
    bool held[kBytes]; // by index: reads, writes, denies reads, denies writes
    bool alone;        // one lock says it all

    Grant ask(int fd) const;
};

Grant Claim::ask(int fd) const {
    if (alone) return set(fd, F_WRLCK, 0, kBytes);
    Grant grant = Grant::given;
    for (int byte = 0; byte < kBytes && grant == Grant::given; ++byte)
        if (held[byte]) grant = set(fd, F_RDLCK, byte, 1);
    constexpr int kOpposite[] = {kDeniesReads, kDeniesWrites, kReads, kWrites};
    for (int byte = 0; byte < kBytes && grant == Grant::given; ++byte)
        if (held[byte]) grant = test(fd, kOpposite[byte]);
    return grant;
}

void pause_at_random() {
    uint16_t chance;
    calls.random(&chance, sizeof chance);
    const timespec pause = {0, 200'000 + chance % 800 * 1000};
    nanosleep(&pause, nullptr);
}

// Sets the claim, or fails with EACCES when others hold what it excludes.
bool claim(int fd, const Claim &claim, bool count_others) {
    for (int round = 0; round < kRounds; ++round) {
        if (round) pause_at_random();
        Grant grant = claim.ask(fd);
        if (grant == Grant::given && count_others && open_elsewhere(fd) == 1)
            grant = Grant::refused;
        if (grant == Grant::given) return true;
        const int kept = errno;
        set(fd, F_UNLCK, 0, kBytes);
        if (grant == Grant::failed) return failed(kept);
    }
    return failed(EACCES);
}

bool at_path(int fd, const char *path) {
    struct stat open_one, named;
    return fstat(fd, &open_one) == 0 && ::stat(path, &named) == 0 &&
           open_one.st_dev == named.st_dev && open_one.st_ino == named.st_ino;
}

// The descriptor alone, without grant; writable where that is possible, since only then one lock
// can exclude all others.
int open_for(const char16_t *path, Mode mode, bool alone, mode_t create) {
    mode.truncate = mode.remove = false;
    if (mode.write) {
        mode.read = true;
        return open_fd(path, mode, create);
    }
    if (!alone) return open_fd(path, mode, create);
    mode.write = true;
    const int fd = open_fd(path, mode, create);
    if (fd >= 0 || (errno != EACCES && errno != EPERM && errno != EROFS && errno != ETXTBSY))
        return fd;
    mode.write = false;
    return open_fd(path, mode, create);
}

} // namespace

int share_open(const char16_t *path, const Mode &mode, unsigned flags, mode_t create) {
    const Native name(path);
    if (!name) return -1;
    const bool alone = (flags & Z_SHARE_ALL) == Z_SHARE_NONE;
    for (int file = 0; file < kNewFiles; ++file) {
        Fd fd(open_for(path, mode, alone, create));
        if (!fd) return -1;
        const bool writable = (fcntl(fd.get(), F_GETFL) & O_ACCMODE) == O_RDWR;
        const bool no_reads = !(flags & Z_SHARE_READ), no_writes = !(flags & Z_SHARE_WRITE);
        const Claim wanted = {{mode.read, mode.write, no_reads, no_writes}, alone && writable};
        const bool updates = mode.read && mode.write && !mode.create;
        if (!claim(fd.get(), wanted, alone && updates)) return -1;
        if (!at_path(fd.get(), name)) continue;
        if (mode.truncate && retry([&] { return calls.ftruncate(fd.get(), 0); }) != 0) return -1;
        return fd.release();
    }
    return failed(EACCES), -1;
}

// Looks without a grant of its own, which would cost four calls more.
bool share_readable(int fd) {
    const Grant grant = test(fd, kDeniesReads);
    return grant == Grant::refused ? failed(EACCES) : grant == Grant::given;
}

bool share_remove(int fd, const char16_t *path) {
    const Native name(path);
    if (!name) return false;
    return at_path(fd, name) ? calls.unlink(name) == 0 : failed(ENOENT);
}

// A write lease is given only while nobody else has the file open. An opener that comes while it
// stands is told to wait by a signal to us, and waits until it is dropped; a signal that is
// ignored by default takes the place of the one that would end the process.
int lock_dir(const char16_t *path, bool shared) {
    const Native name(path);
    const int fd = name ? ::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    if (fd < 0 || retry([&] { return flock(fd, (shared ? LOCK_SH : LOCK_EX) | LOCK_NB); }) == 0)
        return fd;
    const int kept = errno;
    close_fd(fd);
    errno = kept;
    return -1;
}

int open_elsewhere(int fd) {
    if (fcntl(fd, F_SETSIG, SIGURG) != 0) return -1;
    if (fcntl(fd, F_SETLEASE, F_WRLCK) == 0) {
        fcntl(fd, F_SETLEASE, F_UNLCK);
        return 0;
    }
    return errno == EAGAIN || errno == EBUSY ? 1 : -1;
}

} // namespace zev::os
