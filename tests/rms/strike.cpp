// The calls of the module that change files, and the one that hashes a password.
#include "strike.hpp"

#include <cerrno>
#include <csignal>

#include <crypt.h>
#include <dlfcn.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

int left, hashes;
test::Strike mode;

bool is_hit() {
    if (left == 0 || --left > 0) return false;
    if (mode == test::Strike::kill) raise(SIGKILL);
    errno = EIO;
    return true;
}

template <class F> F *real(F *, const char *name) {
    return reinterpret_cast<F *>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace test {

void strike_at(int n, Strike how) {
    left = n;
    mode = how;
}
bool struck() { return left == 0; }
int hashes_made() { return hashes; }

} // namespace test

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int rename(const char *from, const char *to) noexcept {
    return is_hit() ? -1 : real(&rename, "rename")(from, to);
}
EXPORTED int fsync(int fd) { return is_hit() ? -1 : real(&fsync, "fsync")(fd); }
EXPORTED ssize_t write(int fd, const void *bytes, size_t size) {
    return is_hit() ? -1 : real(&write, "write")(fd, bytes, size);
}
EXPORTED int unlink(const char *path) noexcept {
    return is_hit() ? -1 : real(&unlink, "unlink")(path);
}
EXPORTED char *crypt_r(const char *phrase, const char *setting, crypt_data *data) noexcept {
    static void *library = dlopen("libcrypt.so.1", RTLD_NOW);
    static auto *genuine = reinterpret_cast<decltype(&crypt_r)>(dlsym(library, "crypt_r"));
    ++hashes;
    return genuine(phrase, setting, data);
}
