// Preloaded into a program under test: counts its calls that change files and makes the n-th
// fail, or kills the process at it.
//   ZEV_FAULT_AT=n     the call that is hit, from 1; 0 or unset only counts
//   ZEV_FAULT_MODE     fail (once, with ENOSPC), full (from then on), kill
//   ZEV_FAULT_COUNT    file that gets the number of calls when the process exits
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

static long calls, target = -1;
static int mode; // 0 fail, 1 full, 2 kill

static void start(void) {
    const char *at = getenv("ZEV_FAULT_AT"), *how = getenv("ZEV_FAULT_MODE");
    target = at ? atol(at) : 0;
    mode = how && !strcmp(how, "kill") ? 2 : how && !strcmp(how, "full") ? 1 : 0;
}

// True when this call has to fail.
static int hit(void) {
    if (target < 0) start();
    long n = __atomic_add_fetch(&calls, 1, __ATOMIC_SEQ_CST);
    if (!target || n < target || (mode != 1 && n != target)) return 0;
    if (mode == 2) raise(SIGKILL);
    errno = ENOSPC;
    return 1;
}

__attribute__((destructor)) static void report(void) {
    const char *path = getenv("ZEV_FAULT_COUNT");
    if (!path) return;
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) return;
    char text[32];
    int length = snprintf(text, sizeof text, "%ld\n", calls - 1);
    if (write(fd, text, (size_t)length) < 0) _exit(99);
    close(fd);
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))
#define HOOK(type, failure, name, parameters, arguments)                                           \
    type name parameters {                                                                         \
        if (hit()) return failure;                                                                 \
        return REAL(name) arguments;                                                               \
    }

HOOK(int, -1, rename, (const char *a, const char *b), (a, b))
HOOK(int, -1, renameat, (int x, const char *a, int y, const char *b), (x, a, y, b))
HOOK(int, -1, renameat2, (int x, const char *a, int y, const char *b, unsigned f), (x, a, y, b, f))
HOOK(int, -1, link, (const char *a, const char *b), (a, b))
HOOK(int, -1, linkat, (int x, const char *a, int y, const char *b, int f), (x, a, y, b, f))
HOOK(int, -1, unlink, (const char *a), (a))
HOOK(int, -1, unlinkat, (int x, const char *a, int f), (x, a, f))
HOOK(int, -1, mkdir, (const char *a, mode_t m), (a, m))
HOOK(int, -1, rmdir, (const char *a), (a))
HOOK(int, -1, ftruncate, (int fd, off_t n), (fd, n))
HOOK(int, -1, ftruncate64, (int fd, off64_t n), (fd, n))
HOOK(int, -1, fsync, (int fd), (fd))
HOOK(int, -1, fdatasync, (int fd), (fd))
HOOK(int, -1, syncfs, (int fd), (fd))
HOOK(ssize_t, -1, pwrite, (int fd, const void *p, size_t n, off_t o), (fd, p, n, o))
HOOK(ssize_t, -1, pwrite64, (int fd, const void *p, size_t n, off64_t o), (fd, p, n, o))
HOOK(size_t, 0, fwrite, (const void *p, size_t s, size_t n, FILE *f), (p, s, n, f))

ssize_t write(int fd, const void *bytes, size_t count) {
    if (fd > 2 && hit()) return -1;
    return REAL(write)(fd, bytes, count);
}

#define OPEN(name, lead, leads)                                                                    \
    int name(lead const char *path, int flags, ...) {                                              \
        va_list list;                                                                              \
        va_start(list, flags);                                                                     \
        mode_t bits = flags & (O_CREAT | O_TMPFILE) ? va_arg(list, mode_t) : 0;                    \
        va_end(list);                                                                              \
        if (flags & (O_CREAT | O_TRUNC) && hit()) return -1;                                       \
        return REAL(name)(leads path, flags, bits);                                                \
    }
#define COMMA ,
OPEN(open, , )
OPEN(open64, , )
OPEN(openat, int dir COMMA, dir COMMA)
OPEN(openat64, int dir COMMA, dir COMMA)
