// The file kind: a stream over a FILE, which it owns or borrows. What holds: once bytes that were
// given to it have not reached the file, it is in error for good, whatever a rewind clears.
#include "stream/stream.hpp"

#include "common/failure.hpp"
#include "system/os.hpp"

#include "zev/file.h"

#include <cerrno>
#include <new>

using namespace zev;

namespace {

struct FileStream : Stream {
    FILE *file;
    bool owned;
    bool lost = false; // bytes that were written
};

constexpr Stream kFileHead = {.read = zFileStreamRead,
                              .write = zFileStreamWrite,
                              .free = zFileStreamFree,
                              .flush = zFileStreamFlush,
                              .eof = zFileStreamEOF,
                              .error = zFileStreamError,
                              .tell = zFileStreamTell,
                              .seek = zFileStreamSeek,
                              .rewind = zFileStreamRewind,
                              .size = zFileStreamSize};

// A stream over an open file; an owned one is closed if there is no memory for the record.
Stream *over(FILE *file, bool owned) {
    if (auto *stream = new (std::nothrow) FileStream{{kFileHead}, file, owned}) return stream;
    fail_memory();
    if (owned) zFileClose(file);
    return nullptr;
}

FILE *file_of(Stream *stream, Here at = {}) {
    if (!stream) return fail_args(at);
    return static_cast<FileStream *>(stream)->file;
}

// Of a call that may have to write first what is buffered.
bool kept(Stream *stream, bool done) {
    auto *record = static_cast<FileStream *>(stream);
    if (done || !ferror(record->file)) return done;
    record->lost = true;
    return fail_os(errno);
}

} // namespace

Stream *zFileStream(const zwchar *path, const zwchar *mode) {
    if (!path || !mode) return fail_args();
    FILE *file = zFileOpen(path, mode);
    return file ? over(file, true) : nullptr;
}

Stream *zStdioStream(FILE *file) { return file ? over(file, false) : fail_args(); }

Stream *zTempStream(void) {
    FILE *file = zFileTemp();
    return file ? over(file, true) : nullptr;
}

Stream *zev::temp_stream() {
    FILE *file = os::temp_file();
    return file ? over(file, true) : fail_os(errno);
}

uint64_t zFileStreamRead(Stream *stream, void *buffer, uint64_t count) {
    FILE *file = file_of(stream);
    return file ? zFileRead(file, buffer, count) : 0;
}

uint64_t zFileStreamWrite(Stream *stream, const void *buffer, uint64_t count) {
    FILE *file = file_of(stream);
    const uint64_t written = file ? zFileWrite(file, buffer, count) : 0;
    if (file && written < count) static_cast<FileStream *>(stream)->lost = true;
    return written;
}

void zFileStreamFree(Stream *stream) {
    std::unique_ptr<FileStream> record(static_cast<FileStream *>(stream));
    if (record && record->owned) zFileClose(record->file);
}

bool zFileStreamFlush(Stream *stream) {
    FILE *file = file_of(stream);
    return file && kept(stream, zFileFlush(file));
}

bool zFileStreamEOF(Stream *stream) {
    FILE *file = file_of(stream);
    return !file || zFileEOF(file);
}

bool zFileStreamError(Stream *stream) {
    FILE *file = file_of(stream);
    return !file || static_cast<FileStream *>(stream)->lost || zFileError(file);
}

int64_t zFileStreamTell(Stream *stream) {
    FILE *file = file_of(stream);
    return file ? zFileTell(file) : -1;
}

bool zFileStreamSeek(Stream *stream, int64_t offset, int32_t whence) {
    FILE *file = file_of(stream);
    return file && kept(stream, zFileSeek(file, offset, whence));
}

bool zFileStreamRewind(Stream *stream) {
    FILE *file = file_of(stream);
    return file && kept(stream, zFileRewind(file));
}

uint64_t zFileStreamSize(Stream *stream) {
    FILE *file = file_of(stream);
    const uint64_t size = file ? zFileSize(file) : 0;
    if (file) kept(stream, !ferror(file)); // what was buffered is written for it
    return size;
}
