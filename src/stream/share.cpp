// The share kind: a stream over a Share, always its own, so that the file's sharing mode lasts as
// long as the stream.
#include "zev/share.h"

#include "common/failure.hpp"
#include "common/guard.hpp"

#include "zev/stream.h"

#include <new>

using namespace zev;

namespace {

struct ShareStream : Stream {
    Share *share;
};

constexpr Stream kShareHead = {.read = zShareStreamRead,
                               .write = zShareStreamWrite,
                               .free = zShareStreamFree,
                               .flush = zShareStreamFlush,
                               .eof = zShareStreamEOF,
                               .error = zShareStreamError,
                               .tell = zShareStreamTell,
                               .seek = zShareStreamSeek,
                               .rewind = zShareStreamRewind,
                               .size = zShareStreamSize};

// Null without a stream, which the functions of the Share refuse.
Share *share_of(Stream *stream) {
    return stream ? static_cast<ShareStream *>(stream)->share : nullptr;
}

} // namespace

Stream *zShareStream(const zwchar *path, const zwchar *mode, uint32_t share) {
    Owned<Share, zShareClose> opened(zShareOpen(path, mode, share));
    if (!opened) return nullptr;
    auto *stream = new (std::nothrow) ShareStream{{kShareHead}, opened.get()};
    if (!stream) return fail_memory();
    opened.release();
    return stream;
}

uint64_t zShareStreamRead(Stream *stream, void *buffer, uint64_t count) {
    return zShareRead(share_of(stream), buffer, count);
}

uint64_t zShareStreamWrite(Stream *stream, const void *buffer, uint64_t count) {
    return zShareWrite(share_of(stream), buffer, count);
}

void zShareStreamFree(Stream *stream) {
    std::unique_ptr<ShareStream> record(static_cast<ShareStream *>(stream));
    if (record) zShareClose(record->share);
}

bool zShareStreamFlush(Stream *stream) { return zShareFlush(share_of(stream)); }

bool zShareStreamEOF(Stream *stream) { return zShareEOF(share_of(stream)); }

bool zShareStreamError(Stream *stream) { return zShareError(share_of(stream)); }

int64_t zShareStreamTell(Stream *stream) { return zShareTell(share_of(stream)); }

bool zShareStreamSeek(Stream *stream, int64_t offset, int32_t whence) {
    return zShareSeek(share_of(stream), offset, whence);
}

bool zShareStreamRewind(Stream *stream) { return zShareRewind(share_of(stream)); }

uint64_t zShareStreamSize(Stream *stream) { return zShareSize(share_of(stream)); }
