// Share: the sharing modes of posix/share.cpp over a FILE. A refusal is the locked error and keeps
// errno; what else fails is the standard error.
#include "zev/share.h"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "common/failure.hpp"
#include "system/share.hpp"
#include "system/stdio.hpp"
#include "zev/error.h"
#include "zev/thread.h"

#include <cerrno>

using namespace zev;

namespace {

constexpr int kRounds = 5;
constexpr uint32_t kPause = 100; // milliseconds
constexpr mode_t kNewFile = 0666;

Share *fail_open(const zwchar *path) {
    const int kept = errno;
    const bool locked = kept == EAGAIN || kept == EACCES || kept == EEXIST;
    if (locked)
        raise_locked(path);
    else
        fail_errno(path);
    errno = kept;
    return nullptr;
}

} // namespace

// The name goes while the grant is held: whoever waits for it must not get a file that is about
// to lose its name.
Share::~Share() {
    if (!file) return;
    const int kept = errno;
    if (!removed.empty()) os::share_remove(fileno(file), removed.c_str());
    if (fclose(file) != 0) fail_errno(); // what was still buffered is lost
    errno = kept;
}

namespace zev {

Share *share_open(const zwchar *path, const os::Mode &mode, uint32_t flags, mode_t create,
                  const zwchar *told) {
    auto share = std::make_unique<Share>();
    if (mode.remove) share->removed = path;
    const int fd = os::share_open(path, mode, flags, create);
    if (fd < 0) return fail_open(told);
    share->file = os::adopt(fd, mode.stdio());
    return share->file ? share.release() : fail_open(told);
}

Share *share_wait(const zwchar *path, const os::Mode &mode, uint32_t flags, mode_t create) {
    Share *share = nullptr;
    for (int round = 0; round < kRounds && !share; ++round) {
        share = share_open(path, mode, flags, create, path);
        if (share || zErrorClass() != error_class::kLocked) break;
        zMilliSleep(kPause);
    }
    return share;
}

} // namespace zev

Share *zShareOpen(const zwchar *path, const zwchar *letters, uint32_t flags) try {
    os::Mode mode;
    if (!path || !letters) return fail_args();
    if (!os::Mode::parse(letters, &mode)) return fail_open(path);
    return share_open(path, mode, flags, kNewFile, path);
} catch (...) {
    return fail_thrown();
}

Share *zShareWait(const zwchar *path, const zwchar *letters, uint32_t flags) try {
    os::Mode mode;
    if (!path || !letters) return fail_args();
    if (!os::Mode::parse(letters, &mode)) return fail_open(path);
    return share_wait(path, mode, flags, kNewFile);
} catch (...) {
    return fail_thrown();
}

void zShareClose(Share *share) { delete share; }

FILE *zShareFile(Share *share) {
    if (!share) return fail_args();
    return share->file;
}

uint64_t zShareRead(Share *share, void *buffer, uint64_t count) {
    if (!share || (!buffer && count)) return fail_args(), 0;
    return read_file(share->file, buffer, count);
}

uint64_t zShareWrite(Share *share, const void *buffer, uint64_t count) {
    if (!share || (!buffer && count)) return fail_args(), 0;
    return write_file(share->file, buffer, count);
}

bool zShareFlush(Share *share) {
    if (!share) return fail_args();
    return fflush(share->file) == 0 || fail_errno();
}

bool zShareEOF(Share *share) {
    if (!share) return fail_args(), true;
    return feof(share->file);
}

bool zShareError(Share *share) {
    if (!share) return fail_args(), true;
    return ferror(share->file);
}

int64_t zShareTell(Share *share) {
    if (!share) return fail_args(), -1;
    return os::tell(share->file);
}

bool zShareSeek(Share *share, int64_t offset, int32_t whence) {
    if (!share) return fail_args();
    return os::seek(share->file, offset, whence);
}

bool zShareRewind(Share *share) {
    if (!share) return fail_args();
    return os::rewind(share->file);
}

bool zShareTruncate(Share *share, int64_t size) {
    if (!share) return fail_args();
    return os::truncate(share->file, size) || fail_errno();
}

uint64_t zShareSize(Share *share) {
    if (!share) return fail_args(), 0;
    uint64_t size = 0;
    return os::size(share->file, &size) ? size : 0;
}

int32_t zSharePrintfA(Share *share, const char *format, ...) {
    if (!share || !format) return fail_args(), -1;
    va_list arguments;
    va_start(arguments, format);
    const int32_t count = print_narrow(share->file, format, arguments);
    va_end(arguments);
    return count;
}

int32_t zSharePrintfW(Share *share, const zwchar *format, ...) {
    if (!share || !format) return fail_args(), -1;
    va_list arguments;
    va_start(arguments, format);
    const int32_t count = print_wide(share->file, format, arguments);
    va_end(arguments);
    return count;
}
