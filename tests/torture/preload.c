// Preloaded into a program under test: counts its calls that change files and strikes at the n-th.
//   ZEV_TORTURE_AT=n     the call that is hit, from 1; 0 or unset only counts; "end" is the exit
//   ZEV_TORTURE_MODE     what happens at it:
//     fail     it fails, once, with EIO                 kill     SIGKILL
//     dead     it and all that follow fail with EIO;    forget   SIGKILL, what was not synced is
//              what is said is heard                             taken back, data and names
//     full     from it on whatever needs room fails     hollow   SIGKILL, data only is taken back:
//              with ENOSPC                                       names reached the disk before it
//     short    the n-th write takes half its bytes
//   ZEV_TORTURE_SIDE     an empty directory on the same file system, for what may be brought back
//   ZEV_TORTURE_COUNT    file that gets the number of calls, of writes, and of the call that was
//                        the last to sync, when the process exits
//   ZEV_TORTURE_FROM     a file; calls count while it is there
//   ZEV_TORTURE_WITNESS  a file that is locked for as long as the process holds the lock on the
//                        working copy's index; text is added to it if another one had it locked
//
// The loss of power is played inside of the process, before it kills itself. A journal holds what
// happened since the last sync: names that were made, moved and taken away, and the bytes, mode and
// times that a file had before its first write. It is undone from the end. What makes durable:
//   syncfs, sync          everything
//   fsync, fdatasync      the file's bytes, and its name if it is new, as Linux's file systems do,
//                         but none that it has had for a while only;
//                         of a directory: what happened to names in it
// A move counts as durable as soon as one of its two directories is. Where names reach the disk by
// themselves ("hollow"), a move onto a name that stood flushes the bytes, as ext4 and btrfs do; one
// onto a new name doesn't. All else is lost, which is
// harsher than a journaling file system and kinder than a disk that lies: the order of what is
// lost is always that of the calls, and no block is half written. Not seen: writes through a
// mapping, extended attributes, and times set by hand. Programs that a program starts run free.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#define REAL(name) (__extension__(__typeof__(&name)) dlsym(RTLD_NEXT, #name))

enum mode { COUNT, FAIL, DEAD, FULL, SHORT, KILL, FORGET, HOLLOW };
enum need { ROOM = 1, WRITE = 2 }; // takes space; is a write that may come out short

static pthread_mutex_t lock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
static pthread_once_t started = PTHREAD_ONCE_INIT;
static long calls, writes, last_sync, target;
static enum mode mode;
static const char *side, *from;

static void start(void) {
    static const char *names[] = {"", "fail", "dead", "full", "short", "kill", "forget", "hollow"};
    const char *at = getenv("ZEV_TORTURE_AT"), *how = getenv("ZEV_TORTURE_MODE");
    side = getenv("ZEV_TORTURE_SIDE");
    from = getenv("ZEV_TORTURE_FROM");
    if (at) target = strcmp(at, "end") ? atol(at) : LONG_MAX;
    for (int i = FAIL; how && i <= HOLLOW; ++i)
        if (!strcmp(how, names[i])) mode = (enum mode)i;
    unsetenv("LD_PRELOAD");
}

// ---- The journal

struct id {
    dev_t device;
    ino_t inode;
};

struct name { // what happened to a name
    enum { MADE, GONE, GONE_DIR, MOVED, DURABLE } kind;
    char *path, *to; // `to` of a move
    int kept;        // of a file that is gone: its other name in the side directory
    mode_t bits;     // of a directory that is gone
    struct id self, above, above_to;
};

struct image { // a file as it was before it was written
    struct id self;
    int kept;
    char *bytes;
    struct stat was;
};

static struct name *names;
static struct image *images;
static size_t name_count, image_count;
static int serial;

static int journals(void) { return side && (mode == FORGET || mode == HOLLOW); }
static struct id id_of(const struct stat *at) { return (struct id){at->st_dev, at->st_ino}; }
static int same(struct id a, struct id b) { return a.inode == b.inode && a.device == b.device; }

static void side_path(char *out, int kept) { snprintf(out, PATH_MAX, "%s/%d", side, kept); }

static void absolute(char *out, int dir, const char *path) {
    char base[PATH_MAX] = "", link[64];
    if (path[0] != '/' && dir == AT_FDCWD) {
        if (!getcwd(base, sizeof base)) base[0] = 0;
    } else if (path[0] != '/') {
        snprintf(link, sizeof link, "/proc/self/fd/%d", dir);
        ssize_t length = readlink(link, base, sizeof base - 1);
        base[length < 0 ? 0 : length] = 0;
    }
    snprintf(out, PATH_MAX, base[0] ? "%s/%s" : "%s%s", base, path);
}

static struct id above(const char *path) {
    char text[PATH_MAX];
    struct stat at = {0};
    snprintf(text, sizeof text, "%s", path);
    char *slash = strrchr(text, '/');
    if (slash) slash[slash == text] = 0;
    if (stat(text, &at) != 0) return (struct id){0, 0};
    return id_of(&at);
}

static struct name *note(int kind, const char *path) {
    names = realloc(names, (name_count + 1) * sizeof *names);
    struct name *name = &names[name_count++];
    *name = (struct name){.kind = kind, .path = strdup(path), .kept = -1, .above = above(path)};
    return name;
}

// A file keeps another name in the side directory for as long as it may have to come back.
static int keep(const char *path, int flags) {
    char to[PATH_MAX];
    side_path(to, ++serial);
    return REAL(linkat)(AT_FDCWD, path, AT_FDCWD, to, flags) == 0 ? serial : -1;
}

static void note_made(int dir, const char *path) {
    char full[PATH_MAX];
    struct stat at;
    absolute(full, dir, path);
    if (lstat(full, &at) == 0) note(MADE, full)->self = id_of(&at);
}

static void note_gone(const char *full) {
    struct stat at;
    if (lstat(full, &at) != 0) return;
    const int directory = S_ISDIR(at.st_mode), kept = directory ? -1 : keep(full, 0);
    struct name *name = note(directory ? GONE_DIR : GONE, full);
    name->kept = kept;
    name->bits = at.st_mode & 07777;
}

static void note_bytes(const char *path, const struct stat *at) {
    for (size_t i = 0; i < image_count; ++i)
        if (same(images[i].self, id_of(at))) return;
    const int kept = keep(path, AT_SYMLINK_FOLLOW);
    if (kept < 0) return; // has no name: nothing of it could come back
    images = realloc(images, (image_count + 1) * sizeof *images);
    struct image *image = &images[image_count++];
    *image = (struct image){id_of(at), kept, malloc((size_t)at->st_size + 1), *at};
    int fd = REAL(open)(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0 || read(fd, image->bytes, (size_t)at->st_size) != at->st_size)
        image->was.st_size = 0;
    if (fd >= 0) REAL(close)(fd);
}

static void note_bytes_at(int dir, const char *path) {
    char full[PATH_MAX];
    struct stat at;
    if (!journals()) return;
    absolute(full, dir, path);
    if (stat(full, &at) == 0 && S_ISREG(at.st_mode)) note_bytes(full, &at);
}

static void note_bytes_of(int fd) {
    char link[64];
    struct stat at;
    if (!journals() || fstat(fd, &at) != 0 || !S_ISREG(at.st_mode)) return;
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    note_bytes(link, &at);
}

static void synced_all(int unused) {
    (void)unused;
    name_count = image_count = 0;
}

static void forget_bytes(struct id self) {
    for (size_t i = 0; i < image_count; ++i)
        if (same(images[i].self, self)) images[i--] = images[--image_count];
}

// A new file's name, or the one that it was given since; nothing comes back under the first one.
static void made_durable(size_t made) {
    const char *path = names[made].path;
    names[made].kind = DURABLE;
    for (size_t i = made + 1; i < name_count; ++i) {
        const int kind = names[i].kind;
        if ((kind != GONE && kind != MOVED) || strcmp(names[i].path, path) != 0) continue;
        names[i].kind = DURABLE;
        if (kind == GONE) return;
        path = names[i].to;
        if (names[i - 1].kind == GONE && !strcmp(names[i - 1].path, path))
            names[i - 1].kind = DURABLE; // what it replaced
    }
}

static void synced(int fd) {
    struct stat at;
    if (fstat(fd, &at) != 0) return;
    const struct id self = id_of(&at);
    const int directory = S_ISDIR(at.st_mode);
    for (size_t i = 0; i < name_count; ++i) {
        struct name *name = &names[i];
        if (!directory && name->kind == MADE && same(name->self, self)) made_durable(i);
        if (directory && (same(name->above, self) || same(name->above_to, self)))
            name->kind = DURABLE;
    }
    forget_bytes(self);
}

static void undo(const struct name *name) {
    char kept[PATH_MAX];
    side_path(kept, name->kept);
    if (name->kind == MADE && REAL(unlink)(name->path) != 0) REAL(rmdir)(name->path);
    if (name->kind == GONE && name->kept >= 0) REAL(rename)(kept, name->path);
    if (name->kind == GONE_DIR) REAL(mkdir)(name->path, name->bits);
    if (name->kind == MOVED) REAL(rename)(name->to, name->path);
}

static void take_back_bytes(const struct image *image) {
    char kept[PATH_MAX];
    struct stat at;
    side_path(kept, image->kept);
    if (stat(kept, &at) != 0) return;
    if (mode == FORGET) at = image->was; // mode and times too
    REAL(chmod)(kept, 0600);
    int fd = REAL(open)(kept, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0) return;
    if (REAL(write)(fd, image->bytes, (size_t)image->was.st_size) < 0) _exit(99);
    const struct timespec times[2] = {at.st_atim, at.st_mtim};
    futimens(fd, times);
    REAL(fchmod)(fd, at.st_mode & 07777);
    REAL(close)(fd);
}

static void die(void) {
    for (size_t i = name_count; mode == FORGET && i-- > 0;) undo(&names[i]);
    for (size_t i = 0; i < image_count; ++i) take_back_bytes(&images[i]);
    raise(SIGKILL);
}

// ---- The gate

static int is_armed(void) {
    const int kept = errno;
    const int armed = !from || access(from, F_OK) == 0;
    errno = kept;
    return armed;
}

// True when this call has to fail. The caller holds the lock until its call is done.
static int hit(int need) {
    pthread_once(&started, start);
    if (!is_armed()) return 0;
    ++calls;
    if (need & WRITE) ++writes;
    const long n = mode == SHORT ? writes : calls;
    if (!target || n < target || mode == COUNT || mode == SHORT) return 0;
    if (mode >= KILL) die();
    if (mode == FAIL && n != target) return 0;
    if (mode == FULL && !(need & ROOM)) return 0;
    errno = mode == FULL ? ENOSPC : EIO;
    return 1;
}

// How much of a write is done.
static size_t cut(size_t count) {
    return mode == SHORT && writes == target && count > 1 ? count / 2 : count;
}

// Standard output is no file of the disk that dies.
static int regular(int fd) {
    struct stat at;
    if (mode == DEAD && (fd == STDOUT_FILENO || fd == STDERR_FILENO)) return 0;
    return fd >= 0 && fstat(fd, &at) == 0 && S_ISREG(at.st_mode);
}

static void unlock(int *unused) {
    (void)unused;
    pthread_mutex_unlock(&lock);
}
#define LOCKED __attribute__((cleanup(unlock), unused)) int held = pthread_mutex_lock(&lock)

__attribute__((destructor)) static void report(void) {
    pthread_once(&started, start);
    if (target == LONG_MAX && mode >= KILL) die();
    const char *path = getenv("ZEV_TORTURE_COUNT");
    if (!path) return;
    int fd = REAL(open)(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return;
    char text[64];
    int length = snprintf(text, sizeof text, "%ld %ld %ld\n", calls, writes, last_sync);
    if (REAL(write)(fd, text, (size_t)length) < 0) _exit(99);
    REAL(close)(fd);
}

// ---- The witness
//
// The library's lock on the index is a lock on the file .index.zlck, which its holder removes
// before he lets go. The witness never goes away, so that two holders can't miss each other. Of one
// who was killed the system closes file after file: his lock may be free a moment before his
// witness is, which is no meeting. So the holder is written down, and only a living one counts.

static int witness = -1, lock_fd = -1;
static const char lock_name[] = "/.index.zlck";

static int is_lock_file(const char *path) {
    const size_t length = strlen(path), tail = sizeof lock_name - 1;
    return length >= tail && !strcmp(path + length - tail, lock_name);
}

// The one who is written down, unless he is dead or about to be (PF_EXITING).
static int is_alive(int fd) {
    char path[64], text[512];
    pid_t pid = 0;
    unsigned flags = 0;
    if (pread(fd, &pid, sizeof pid, 0) != sizeof pid) return 0;
    snprintf(path, sizeof path, "/proc/%d/stat", (int)pid);
    const int stat_fd = REAL(open)(path, O_RDONLY | O_CLOEXEC);
    if (stat_fd < 0) return 0;
    const ssize_t size = read(stat_fd, text, sizeof text - 1);
    REAL(close)(stat_fd);
    text[size < 0 ? 0 : size] = 0;
    const char *behind = strrchr(text, ')'); // of the program's name
    return behind && sscanf(behind + 1, " %*c %*d %*d %*d %*d %*d %u", &flags) == 1 && !(flags & 4);
}

static void met(const char *path) {
    const char text[] = "two in the lock\n";
    const int fd = REAL(open)(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0 || REAL(write)(fd, text, sizeof text - 1) < 0) _exit(99);
    REAL(close)(fd);
}

static void lock_taken(int fd) {
    const char *path = getenv("ZEV_TORTURE_WITNESS");
    char link[64], name[PATH_MAX];
    struct stat held, there;
    if (!path || witness >= 0) return;
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, name, sizeof name - 1);
    name[length < 0 ? 0 : length] = 0;
    // A file that was removed meanwhile is given up by the library too.
    if (!is_lock_file(name) || fstat(fd, &held) != 0 || stat(name, &there) != 0) return;
    if (!same(id_of(&held), id_of(&there))) return;
    char holder[PATH_MAX];
    snprintf(holder, sizeof holder, "%s.holder", path);
    witness = REAL(open)(holder, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    while (flock(witness, LOCK_EX | LOCK_NB) != 0) {
        if (is_alive(witness)) return met(path);
        sched_yield();
    }
    lock_fd = fd;
    const pid_t own = getpid();
    if (REAL(pwrite)(witness, &own, sizeof own, 0) != sizeof own) _exit(99);
}

static void leave_witness(void) {
    REAL(close)(witness);
    witness = lock_fd = -1;
}

static void lock_given(const char *path) {
    if (witness >= 0 && is_lock_file(path)) leave_witness();
}

// Who only looked whether a lock is held lets it go with its name still there.
int close(int fd) {
    LOCKED;
    if (witness >= 0 && fd == lock_fd) leave_witness();
    return REAL(close)(fd);
}

#define CONTROL(name)                                                                              \
    int name(int fd, int command, ...) {                                                           \
        va_list list;                                                                              \
        va_start(list, command);                                                                   \
        void *more = va_arg(list, void *);                                                         \
        va_end(list);                                                                              \
        const int code = REAL(name)(fd, command, more);                                            \
        const struct flock *range = more;                                                          \
        if (code != 0 || command != F_OFD_SETLK || range->l_type != F_WRLCK) return code;          \
        LOCKED;                                                                                    \
        lock_taken(fd);                                                                            \
        return code;                                                                               \
    }
CONTROL(fcntl)
CONTROL(fcntl64)

// ---- Names

static int moved(int from_dir, const char *from, int to_dir, const char *to, unsigned flags) {
    LOCKED;
    if (hit(0)) return -1;
    char a[PATH_MAX], b[PATH_MAX];
    const size_t before = name_count;
    struct stat at;
    struct id source = {0, 0};
    int replaced = 0;
    if (journals()) {
        absolute(a, from_dir, from);
        absolute(b, to_dir, to);
        if (mode == HOLLOW && lstat(a, &at) == 0)
            source = id_of(&at), replaced = lstat(b, &at) == 0;
        if (!(flags & RENAME_NOREPLACE)) note_gone(b);
        struct name *name = note(MOVED, a);
        name->to = strdup(b);
        name->above_to = above(b);
    }
    int code = flags ? REAL(renameat2)(from_dir, from, to_dir, to, flags)
                     : REAL(renameat)(from_dir, from, to_dir, to);
    if (code != 0) name_count = before;
    if (code == 0 && replaced) forget_bytes(source);
    return code;
}

int rename(const char *a, const char *b) { return moved(AT_FDCWD, a, AT_FDCWD, b, 0); }
int renameat(int x, const char *a, int y, const char *b) { return moved(x, a, y, b, 0); }
int renameat2(int x, const char *a, int y, const char *b, unsigned f) {
    return moved(x, a, y, b, f);
}

static int made(int code, int dir, const char *path) {
    if (code >= 0 && journals()) note_made(dir, path);
    return code;
}

#define MAKER(name, dir, path, parameters, arguments)                                              \
    int name parameters {                                                                          \
        LOCKED;                                                                                    \
        return hit(ROOM) ? -1 : made(REAL(name) arguments, dir, path);                             \
    }
MAKER(symlink, AT_FDCWD, b, (const char *a, const char *b), (a, b))
MAKER(symlinkat, y, b, (const char *a, int y, const char *b), (a, y, b))
MAKER(mkdir, AT_FDCWD, a, (const char *a, mode_t m), (a, m))
MAKER(mkdirat, x, a, (int x, const char *a, mode_t m), (x, a, m))
MAKER(mkstemp, AT_FDCWD, a, (char *a), (a))
MAKER(mkstemp64, AT_FDCWD, a, (char *a), (a))
MAKER(mkostemp, AT_FDCWD, a, (char *a, int f), (a, f))
MAKER(mkostemp64, AT_FDCWD, a, (char *a, int f), (a, f))
MAKER(mkstemps, AT_FDCWD, a, (char *a, int s), (a, s))
MAKER(mkstemps64, AT_FDCWD, a, (char *a, int s), (a, s))
MAKER(mkostemps, AT_FDCWD, a, (char *a, int s, int f), (a, s, f))
MAKER(mkostemps64, AT_FDCWD, a, (char *a, int s, int f), (a, s, f))

// A second name takes no room worth the name: an undo by link and rename works on a full disk.
int linkat(int x, const char *a, int y, const char *b, int flags) {
    LOCKED;
    return hit(0) ? -1 : made(REAL(linkat)(x, a, y, b, flags), y, b);
}
int link(const char *a, const char *b) { return linkat(AT_FDCWD, a, AT_FDCWD, b, 0); }

int unlinkat(int dir, const char *path, int flags) {
    LOCKED;
    if (hit(0)) return -1;
    char full[PATH_MAX];
    const size_t before = name_count;
    absolute(full, dir, path);
    lock_given(full);
    if (journals()) note_gone(full);
    int code = REAL(unlinkat)(dir, path, flags);
    if (code != 0) name_count = before;
    return code;
}
int unlink(const char *path) { return unlinkat(AT_FDCWD, path, 0); }
int rmdir(const char *path) { return unlinkat(AT_FDCWD, path, AT_REMOVEDIR); }
int remove(const char *path) {
    struct stat at;
    const int directory = lstat(path, &at) == 0 && S_ISDIR(at.st_mode);
    return unlinkat(AT_FDCWD, path, directory ? AT_REMOVEDIR : 0);
}

// ---- Opening

// What an opening does to a name and to bytes that stand; true when it has to fail.
static int opening(int *fresh, int dir, const char *path, int flags) {
    const int nameless = (flags & O_TMPFILE) == O_TMPFILE;
    *fresh = 0;
    if (!nameless && !(flags & (O_CREAT | O_TRUNC))) return 0;
    if (hit(ROOM)) return 1;
    *fresh = !nameless && flags & O_CREAT && faccessat(dir, path, F_OK, AT_SYMLINK_NOFOLLOW) != 0;
    if (!nameless && flags & O_TRUNC && !*fresh) note_bytes_at(dir, path);
    return 0;
}

static int opened(int fd, int fresh, int dir, const char *path) {
    return fresh ? made(fd, dir, path) : fd;
}

#define OPEN(name, lead, leads, dir)                                                               \
    int name(lead const char *path, int flags, ...) {                                              \
        va_list list;                                                                              \
        va_start(list, flags);                                                                     \
        mode_t bits = flags & (O_CREAT | O_TMPFILE) ? va_arg(list, mode_t) : 0;                    \
        va_end(list);                                                                              \
        LOCKED;                                                                                    \
        int fresh;                                                                                 \
        if (opening(&fresh, dir, path, flags)) return -1;                                          \
        return opened(REAL(name)(leads path, flags, bits), fresh, dir, path);                      \
    }
#define COMMA ,
OPEN(open, , , AT_FDCWD)
OPEN(open64, , , AT_FDCWD)
OPEN(openat, int dir COMMA, dir COMMA, dir)
OPEN(openat64, int dir COMMA, dir COMMA, dir)

#define FOPEN(name)                                                                                \
    FILE *name(const char *path, const char *how) {                                                \
        LOCKED;                                                                                    \
        int fresh, flags = how[0] == 'w' ? O_CREAT | O_TRUNC : how[0] == 'a' ? O_CREAT : 0;        \
        if (opening(&fresh, AT_FDCWD, path, flags)) return NULL;                                   \
        FILE *file = REAL(name)(path, how);                                                        \
        opened(file ? 0 : -1, fresh, AT_FDCWD, path);                                              \
        return file;                                                                               \
    }
FOPEN(fopen)
FOPEN(fopen64)

// ---- Bytes

#define WRITER(type, name, fd, parameters, arguments)                                              \
    type name parameters {                                                                         \
        if (!regular(fd)) return REAL(name) arguments;                                             \
        LOCKED;                                                                                    \
        if (hit(ROOM | WRITE)) return -1;                                                          \
        note_bytes_of(fd);                                                                         \
        n = cut(n);                                                                                \
        return REAL(name) arguments;                                                               \
    }
WRITER(ssize_t, write, fd, (int fd, const void *p, size_t n), (fd, p, n))
WRITER(ssize_t, pwrite, fd, (int fd, const void *p, size_t n, off_t o), (fd, p, n, o))
WRITER(ssize_t, pwrite64, fd, (int fd, const void *p, size_t n, off64_t o), (fd, p, n, o))
WRITER(ssize_t, copy_file_range, to,
       (int from, off64_t *a, int to, off64_t *b, size_t n, unsigned f), (from, a, to, b, n, f))
WRITER(ssize_t, sendfile, to, (int to, int from, off_t *o, size_t n), (to, from, o, n))
WRITER(ssize_t, sendfile64, to, (int to, int from, off64_t *o, size_t n), (to, from, o, n))

ssize_t writev(int fd, const struct iovec *parts, int count) {
    if (!regular(fd)) return REAL(writev)(fd, parts, count);
    LOCKED;
    if (hit(ROOM | WRITE)) return -1;
    note_bytes_of(fd);
    return REAL(writev)(fd, parts, mode == SHORT && writes == target && count > 1 ? 1 : count);
}

#define CHANGER(name, remember, parameters, arguments)                                             \
    int name parameters {                                                                          \
        LOCKED;                                                                                    \
        if (hit(0)) return -1;                                                                     \
        remember;                                                                                  \
        return REAL(name) arguments;                                                               \
    }
CHANGER(ftruncate, note_bytes_of(fd), (int fd, off_t n), (fd, n))
CHANGER(ftruncate64, note_bytes_of(fd), (int fd, off64_t n), (fd, n))
CHANGER(truncate, note_bytes_at(AT_FDCWD, a), (const char *a, off_t n), (a, n))
CHANGER(truncate64, note_bytes_at(AT_FDCWD, a), (const char *a, off64_t n), (a, n))
CHANGER(fchmod, note_bytes_of(fd), (int fd, mode_t m), (fd, m))
CHANGER(chmod, note_bytes_at(AT_FDCWD, a), (const char *a, mode_t m), (a, m))
CHANGER(fchmodat, note_bytes_at(x, a), (int x, const char *a, mode_t m, int f), (x, a, m, f))

#define SYNC(name, durable)                                                                        \
    int name(int fd) {                                                                             \
        LOCKED;                                                                                    \
        if (hit(0)) return -1;                                                                     \
        last_sync = calls;                                                                         \
        durable(fd);                                                                               \
        return 0;                                                                                  \
    }
SYNC(fsync, synced)
SYNC(fdatasync, synced)
SYNC(syncfs, synced_all)

void sync(void) {
    LOCKED;
    if (hit(0)) return;
    last_sync = calls;
    synced_all(0);
}

// A stream counts when its buffer goes out. Flushing inside of the C library can't be seen, so the
// calls that cause it stand in.
static int stream_fails(FILE *file, size_t more) {
    const size_t room = __fbufsize(file) ? __fbufsize(file) : 4096;
    if (!regular(fileno(file)) || (more && __fpending(file) + more < room)) return 0;
    if (!more && !__fpending(file)) return 0;
    if (!hit(ROOM)) return note_bytes_of(fileno(file)), 0;
    file->_flags |= 0x20; // the stream's error mark
    return 1;
}

size_t fwrite(const void *bytes, size_t size, size_t count, FILE *file) {
    LOCKED;
    const size_t more = size * count;
    if (more > 0 && stream_fails(file, more)) return 0;
    return REAL(fwrite)(bytes, size, count, file);
}

int fflush(FILE *file) {
    LOCKED;
    return file && stream_fails(file, 0) ? EOF : REAL(fflush)(file);
}

int fclose(FILE *file) {
    LOCKED;
    if (witness >= 0 && fileno(file) == lock_fd) leave_witness();
    if (!stream_fails(file, 0)) return REAL(fclose)(file);
    const int reason = errno;
    __fpurge(file);
    REAL(fclose)(file);
    errno = reason;
    return EOF;
}
