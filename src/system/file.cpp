// File: FILE with the library's errors, and whole files and trees by name. Text leaves as UTF-8
// with narrow stdio only: a stream that was used wide once would write nothing.
#include "zev/file.h"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/format.hpp"
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "system/path.hpp"
#include "system/stdio.hpp"

#include <cerrno>

#include <sys/stat.h>

using namespace zev;

namespace zev {

int32_t print_text(FILE *file, const char *text) {
    if (!text) return -1;
    const size_t size = strlen(text);
    if (fwrite(text, 1, size, file) == size) return static_cast<int32_t>(size);
    return fail_errno(), -1;
}

int32_t print_narrow(FILE *file, const char *format, va_list arguments) {
    return print_text(file, Narrow(format_narrow_dup(format, arguments)).get());
}

// Wide text leaves as UTF-8; the count is that of its own units.
int32_t print_wide(FILE *file, const zwchar *format, va_list arguments) {
    const Wide text(format_wide_dup(format, arguments));
    if (!text) return -1;
    const uint64_t count = zStrlenW(text.get());
    const Narrow bytes(utf8_dup(text.get(), count));
    if (!bytes) return fail_memory(), -1;
    return print_text(file, bytes.get()) < 0 ? -1 : static_cast<int32_t>(count);
}

uint64_t read_file(FILE *file, void *buffer, uint64_t count) {
    const uint64_t moved = fread(buffer, 1, count, file);
    if (moved < count && ferror(file)) fail_errno();
    return moved;
}

uint64_t write_file(FILE *file, const void *buffer, uint64_t count) {
    const uint64_t moved = fwrite(buffer, 1, count, file);
    if (moved < count) fail_errno();
    return moved;
}

} // namespace zev

FILE *zFileOpen(const zwchar *path, const zwchar *mode) {
    FILE *file = os::open(path, mode);
    if (!file) return fail_errno(path);
    return file;
}

bool zFileClose(FILE *file) { return !file || fclose(file) == 0 || fail_errno(); }

FILE *zFileTemp() try {
    zwchar path[Z_PATH_MAX];
    const int fd = os::temp_named(path, path_remembered_temp(), nullptr);
    FILE *file = fd < 0 ? nullptr : os::adopt(fd, "w+b");
    if (!file) return fail_errno();
    return file;
} catch (...) {
    return fail_thrown();
}

uint64_t zFileRead(FILE *file, void *buffer, uint64_t count) {
    if (!file || (!buffer && count)) return fail_args(), 0;
    return read_file(file, buffer, count);
}

uint64_t zFileWrite(FILE *file, const void *buffer, uint64_t count) {
    if (!file || (!buffer && count)) return fail_args(), 0;
    return write_file(file, buffer, count);
}

bool zFileFlush(FILE *file) {
    if (!file) return fail_args();
    return fflush(file) == 0 || fail_errno();
}

bool zFileEOF(FILE *file) { return !file || feof(file); }
bool zFileError(FILE *file) { return !file || ferror(file); }
int64_t zFileTell(FILE *file) { return file ? os::tell(file) : -1; }
bool zFileSeek(FILE *file, int64_t offset, int32_t whence) {
    return file && os::seek(file, offset, whence);
}
bool zFileRewind(FILE *file) { return file && os::rewind(file); }

bool zFileTruncate(FILE *file, int64_t size) {
    if (!file) return fail_args();
    return os::truncate(file, size) || fail_errno();
}

uint64_t zFileSize(FILE *file) {
    if (!file) return fail_args(), 0;
    uint64_t size = 0;
    if (!os::size(file, &size)) fail_errno();
    return size;
}

int32_t zFilePrintfA(FILE *file, const char *format, ...) {
    if (!file || !format) return fail_args(), -1;
    va_list arguments;
    va_start(arguments, format);
    const int32_t count = print_narrow(file, format, arguments);
    va_end(arguments);
    return count;
}

int32_t zFilePrintfW(FILE *file, const zwchar *format, ...) {
    if (!file || !format) return fail_args(), -1;
    va_list arguments;
    va_start(arguments, format);
    const int32_t count = print_wide(file, format, arguments);
    va_end(arguments);
    return count;
}

bool zFileStatW(const zwchar *path, struct stat *out) {
    if (!path || !out) return fail_args();
    return os::stat(path, out) || fail_errno(path);
}

bool zFileStatA(const char *path, struct stat *out) try {
    if (!path || !out) return fail_args();
    return zFileStatW(to_wide(path).c_str(), out);
} catch (...) {
    return fail_thrown();
}

bool zCopy(const zwchar *src, const zwchar *dst) {
    if (!src || !dst) return fail_args();
    return os::copy(src, dst) || fail_system(src);
}

bool zMove(const zwchar *src, const zwchar *dst, bool replace) {
    if (!src || !dst) return fail_args();
    return os::move(src, dst, replace) || fail_system(src);
}

bool zDrop(const zwchar *path) {
    if (!path) return fail_args();
    return os::trash(path);
}

bool zChread(const zwchar *path, bool readonly) {
    if (!path) return fail_args();
    return os::set_readonly(path, readonly) || fail_errno(path);
}
