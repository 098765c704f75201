// Flock: for <dir>/<name> a lock file <dir>/.<name>.zlck, held without sharing while the lock
// stands. Its content is the target as it was when the lock was taken, byte for byte; empty means
// that there was no target, unless the caller told what stands for one. Its presence alone locks
// nothing: only an open holder does.
//
// What undo and recovery put back must be whole, whenever the holder was killed:
//
// 1. A lock file with the owner's execute bit is incomplete. It is made 0700, and a left-over is
//    set to that before it is truncated; only after the copy was written and synced it becomes
//    0600. Recovery ignores incomplete ones. A lock that saves nothing stays incomplete.
// 2. The target is replaced in one step, by a second name of the lock file that is renamed onto
//    it. That needs no free space, which may be what made the operation fail. Where there are no
//    second names a copy is written aside and renamed.
// 3. Then target and lock file are one file, and a writer in place would change both. So a new
//    lock file, locked and complete, is renamed over the name of the old one. If there is no
//    space for it the two stay one file until the lock ends: other openers of the target are
//    refused meanwhile, and whoever finds a left-over that has a second name drops its name
//    instead of truncating it.
// 4. The lock file's name goes before the lock does, see posix/share.cpp.
// 5. A target that is a symbolic link stays one: what it names is put back. A lock file is never
//    one, or taking the lock would empty what it names.
//
// A crash leaves at most a file <dir>/.<name>.zlck.new besides, which the next undo or purge
// removes.
//
// What a lock is in, and what moves it on:
//
//                       flock_complete              flock_expire
//   flock_open_lazy --> pending --------> saved ------------------> expired
//                          |               ^  `-- zFlockUndo --.       |
//   zFlockOpen,            v               `-------------------'-------'
//   saves nothing ------> bare
//
// pending and bare have the mark of an incomplete lock file, saved has not, expired has it until
// an undo. zFlockClose ends each; flock_leave, as a death, leaves the lock file behind.
#include "system/flock.hpp"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "system/path.hpp"
#include "system/share.hpp"
#include "zev/path.h"

#include <cassert>
#include <cerrno>

using namespace zev;

namespace {

constexpr mode_t kIncomplete = 0700, kComplete = 0600;
constexpr mode_t kNewTarget = 0644; // of a target that recovery finds gone
constexpr os::Mode kUpdate = {.read = true, .write = true, .create = true, .no_link = true};
constexpr os::Mode kLeftOver = {.read = true, .no_link = true};
constexpr os::Mode kRead = {.read = true};

// The two files of a lock, and the lock.
struct Lock {
    zwchar target[Z_PATH_MAX];
    zwchar path[Z_PATH_MAX];
    std::u16string aside; // a name beside it for the moment of undoing
    ShareGuard share;

    bool name(const zwchar *target_path);
    bool renew();
    bool save(int target_fd, std::string_view absent);
    bool remove_target() const;
    bool put_back(mode_t mode);

    int fd() const { return fd_of(share.get()); }
    bool stat(struct stat *info) const { return os::fd_stat(fd(), info); }

  private:
    bool follow_link();
    bool is_target() const;
    bool link_back(mode_t mode);
    bool copy_back(mode_t mode);
    bool separate(mode_t mode);
};

bool fail_target(const Lock &lock) { return fail_errno(lock.target); }

// Without modes a lock file that is whole can't be told from one cut short.
bool fail_mark(const Lock &lock) {
    if (errno != EPERM && errno != ENOTSUP && errno != ENOSYS) return fail_target(lock);
    return fail_os(ENOTSUP, std::u16string(lock.target) +
                                u": no lock on a file system that keeps no file modes");
}

// A path without a directory gives a lock file that can't be made: locks need one.
bool Lock::name(const zwchar *target_path) {
    const std::u16string file = lock_name(zPathFindName(target_path));
    zwchar directory[Z_PATH_MAX];
    if (!path_join(target, target_path, u"")) return false; // cut, it names another file
    zPathRemoveName(directory, target);
    if (!path_join(path, directory, file.c_str())) return false;
    aside = std::u16string(path) + u".new";
    return true;
}

// Some file systems take every mode and keep none.
bool set_mark(int fd, mode_t mode) {
    struct stat info;
    if (!os::fd_mode(fd, mode) || !os::fd_stat(fd, &info)) return false;
    if (is_incomplete(info) == bool(mode & S_IXUSR)) return true;
    errno = ENOTSUP;
    return false;
}

// Makes a lock file just locked, new or left over, an empty incomplete one. False with errno 0
// when its name was dropped instead and the lock is to be taken anew. An empty one that can't be
// marked goes: left behind it would say that there was no target.
bool Lock::renew() {
    struct stat info;
    if (!stat(&info)) return false;
    if (info.st_nlink > 1) {
        if (os::share_remove(fd(), path)) errno = 0;
        return false;
    }
    if ((info.st_mode & 07777) != kIncomplete && !set_mark(fd(), kIncomplete)) {
        const int kept = errno;
        if (info.st_size == 0) os::share_remove(fd(), path);
        errno = kept;
        return false;
    }
    return info.st_size == 0 || os::fd_truncate(fd(), 0);
}

// Fills an empty incomplete lock file from the target, or for -1 with what stands for it, and
// completes it.
bool fill(int lock_fd, int target_fd, std::string_view absent = {}) {
    const bool filled = target_fd < 0 ? os::write_all(lock_fd, absent.data(), absent.size())
                                      : os::copy_bytes(target_fd, lock_fd);
    const bool empty = target_fd < 0 && absent.empty();
    return filled && (empty || os::fd_sync(lock_fd)) && set_mark(lock_fd, kComplete);
}

bool Lock::save(int target_fd, std::string_view absent) {
    if (fill(fd(), target_fd, absent)) return true;
    fail_mark(*this);
    os::fd_truncate(fd(), 0);
    return false;
}

bool Lock::remove_target() const {
    return os::unlink(target) || errno == ENOENT || fail_target(*this);
}

// From here on the target is what its link names.
bool Lock::follow_link() {
    struct stat info;
    std::u16string real;
    if (!os::lstat(target, &info) || !S_ISLNK(info.st_mode)) return true;
    if (!os::real_path(target, &real)) return errno == ENOENT || fail_target(*this);
    return path_join(target, real.c_str(), u"");
}

bool Lock::is_target() const {
    struct stat own, named;
    return stat(&own) && os::lstat(target, &named) && own.st_dev == named.st_dev &&
           own.st_ino == named.st_ino;
}

bool Lock::link_back(mode_t mode) {
    os::unlink(aside.c_str());
    // Before it can be seen as the target, but never with the mark of an incomplete lock file.
    if (!os::fd_mode(fd(), mode & ~mode_t{S_IXUSR})) return false;
    if (!os::link(path, aside.c_str())) return false;
    if (os::move(aside.c_str(), target, true)) return true;
    const int kept = errno;
    os::unlink(aside.c_str());
    errno = kept;
    return false;
}

bool Lock::copy_back(mode_t mode) {
    os::Replacement replacement(target, mode);
    return replacement && os::fd_rewind(fd()) && os::copy_bytes(fd(), replacement.fd()) &&
           replacement.commit();
}

// Gives the lock file's name to a new file of the same content, and the lock with it.
bool Lock::separate(mode_t mode) {
    os::unlink(aside.c_str());
    ShareGuard fresh(share_open(aside.c_str(), kUpdate, Z_SHARE_NONE, kIncomplete, target));
    if (!fresh) return false;
    if (!os::fd_mode(fd_of(fresh.get()), kIncomplete) || !os::fd_rewind(fd()) ||
        !fill(fd_of(fresh.get()), fd()) || !os::move(aside.c_str(), path, true)) {
        os::unlink(aside.c_str());
        return false;
    }
    if (mode & S_IXUSR) os::fd_mode(fd(), mode); // is only the target now
    share = std::move(fresh);
    return true;
}

// The target becomes the saved one, unless somebody holds it or it is that already.
bool Lock::put_back(mode_t mode) {
    if (!follow_link()) return false;
    if (!is_target()) {
        const ShareGuard held(share_open(target, kRead, Z_SHARE_NONE, 0, target));
        if (!held && errno != ENOENT) return false;
        zwchar directory[Z_PATH_MAX];
        zPathRemoveName(directory, target);
        if (!link_back(mode) && !copy_back(mode)) return fail_target(*this);
        if (!os::sync_dir(directory)) return fail_target(*this);
    }
    if (is_target()) separate(mode);
    return true;
}

std::unique_ptr<Lock> named(const zwchar *target) {
    auto lock = std::make_unique<Lock>();
    return lock->name(target) ? std::move(lock) : nullptr;
}

// The lock of a left-over lock file, if there is one that nobody holds; its target's name is
// told in a refusal.
bool take_left_over(Lock &lock) {
    lock.share.reset(share_open(lock.path, kLeftOver, Z_SHARE_NONE, 0, lock.target));
    return lock.share != nullptr;
}

} // namespace

enum class State { pending, bare, saved, expired };

struct Flock {
    Lock lock;
    State state = State::pending;
    mode_t mode = kNewTarget; // of the target that was saved

    bool check_state() const;
};

// While target and lock file are one, the mode is the target's.
bool Flock::check_state() const {
    struct stat info;
    if (!lock.share || !lock.stat(&info)) return lock.share != nullptr;
    if (info.st_nlink > 1 || state == State::expired) return true;
    return is_incomplete(info) == (state != State::saved);
}

namespace zev {

Flock *flock_open_lazy(const zwchar *path) try {
    if (!path) return fail_args();
    auto flock = std::make_unique<Flock>();
    Lock &lock = flock->lock;
    if (!lock.name(path)) return nullptr;
    do {
        lock.share.reset(share_wait(lock.path, kUpdate, Z_SHARE_NONE, kIncomplete));
        if (!lock.share) return nullptr;
        if (lock.renew()) {
            assert(flock->check_state());
            return flock.release();
        }
    } while (errno == 0);
    fail_mark(lock);
    return nullptr;
} catch (...) {
    return fail_thrown();
}

bool flock_complete(Flock *flock, std::string_view absent) try {
    if (!flock) return fail_args();
    assert(flock->check_state());
    if (flock->state != State::pending) return true;
    Lock &lock = flock->lock;
    const ShareGuard target(share_open(lock.target, kRead, Z_SHARE_READ, 0, lock.target));
    if (!target && errno != ENOENT) return false;
    struct stat info;
    if (target && os::fd_stat(fd_of(target.get()), &info)) flock->mode = info.st_mode & 07777;
    if (!lock.save(target ? fd_of(target.get()) : -1, absent)) return false;
    flock->state = State::saved;
    assert(flock->check_state());
    return true;
} catch (...) {
    return fail_thrown();
}

bool flock_expire(Flock *flock) {
    if (!flock) return fail_args();
    assert(flock->check_state());
    if (!os::fd_mode(flock->lock.fd(), kIncomplete)) return fail_target(flock->lock);
    if (flock->state == State::saved) flock->state = State::expired;
    return true;
}

// The copy of one that expired is whole: it is marked so again.
void flock_leave(Flock *flock) {
    struct stat info;
    if (!flock) return;
    const bool saved = flock->state == State::saved || flock->state == State::expired;
    if (!saved) return zFlockClose(flock);
    const int fd = flock->lock.fd();
    if (flock->lock.stat(&info) && is_incomplete(info) && info.st_nlink == 1)
        os::fd_mode(fd, kComplete);
    delete flock;
}

} // namespace zev

Flock *zFlockOpen(const zwchar *path, bool save) {
    Flock *flock = flock_open_lazy(path);
    if (flock && !save) flock->state = State::bare;
    if (!flock || flock_complete(flock)) return flock;
    zFlockClose(flock);
    return nullptr;
}

void zFlockClose(Flock *flock) {
    if (!flock) return;
    const int kept = errno; // why a lock that is given up could not be had
    if (flock->lock.share) os::share_remove(flock->lock.fd(), flock->lock.path);
    delete flock;
    errno = kept;
}

bool zFlockUndo(Flock *flock) try {
    struct stat saved;
    if (!flock) return fail_args();
    assert(flock->check_state());
    if (flock->state == State::pending) return true;
    if (!flock->lock.stat(&saved)) return fail_target(flock->lock);
    if (!saved.st_size) return flock->lock.remove_target();
    if (!flock->lock.put_back(flock->mode)) return false;
    flock->state = State::saved;
    assert(flock->check_state());
    return true;
} catch (...) {
    return fail_thrown();
}

bool zFlockRecover(const zwchar *path) try {
    if (!path) return fail_args();
    const auto lock = named(path);
    struct stat saved, present;
    if (!lock || !take_left_over(*lock) || !lock->stat(&saved)) return true;
    if (is_incomplete(saved)) return true;
    const bool exists = os::stat(lock->target, &present);
    if (saved.st_size) {
        lock->put_back(exists ? present.st_mode & 07777 : kNewTarget);
        return true;
    }
    const ShareGuard held(share_open(lock->target, kRead, Z_SHARE_NONE, 0, lock->target));
    if (held || errno == ENOENT) lock->remove_target();
    return true;
} catch (...) {
    return fail_thrown(), true;
}

bool zFlockPurge(const zwchar *path) try {
    if (!path) return fail_args();
    const auto lock = named(path);
    if (!lock || !take_left_over(*lock)) return true;
    os::unlink(lock->aside.c_str());
    if (!os::share_remove(lock->fd(), lock->path)) fail_target(*lock);
    return true;
} catch (...) {
    return fail_thrown(), true;
}
