// The JSON kind: a memory stream that holds JSON text, and the tree that was parsed from it.
#include "zev/json.h"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "stream/stream.hpp"

#include <new>

using namespace zev;

namespace {

struct JsonStream : MemStream {
    Json *tree; // owned; null until it is asked for
};

constexpr Stream kJsonHead = {.read = zJsonStreamRead,
                              .write = zJsonStreamWrite,
                              .free = zJsonStreamFree,
                              .flush = nullptr,
                              .eof = zJsonStreamEOF,
                              .error = zJsonStreamError,
                              .tell = zJsonStreamTell,
                              .seek = zJsonStreamSeek,
                              .rewind = zJsonStreamRewind,
                              .size = zMemStreamSize};

} // namespace

Stream *zJsonStreamIn(void) {
    std::unique_ptr<JsonStream> stream(new (std::nothrow) JsonStream{});
    if (!stream) return fail_memory();
    if (!zMemStreamInit(stream.get(), 1, 0)) return nullptr;
    stream->head = kJsonHead;
    return &stream.release()->head;
}

Stream *zJsonStreamOut(const Json *json) {
    if (!json) return fail_args();
    Owned<Stream, zStreamFree> stream(zJsonStreamIn());
    if (!stream || !zJsonWriteStream(json, stream.get())) return nullptr;
    zStreamRewind(stream.get());
    return stream.release();
}

Json *zJsonStreamData(Stream *stream) {
    if (!stream || stream->free != zJsonStreamFree) return fail_args();
    auto *record = static_cast<JsonStream *>(memory_stream(stream));
    if (record->tree) return record->tree;
    zStreamRewind(stream);
    return record->tree = zJsonReadStream(stream);
}

void zJsonStreamFree(Stream *stream) {
    std::unique_ptr<JsonStream> record(static_cast<JsonStream *>(memory_stream(stream)));
    if (!record) return;
    zJsonFree(record->tree);
    zMemStreamCleanup(record.get());
}

uint64_t zJsonStreamRead(Stream *stream, void *buffer, uint64_t count) {
    return zMemStreamRead(stream, buffer, count);
}

uint64_t zJsonStreamWrite(Stream *stream, const void *buffer, uint64_t count) {
    return zMemStreamWrite(stream, buffer, count);
}

bool zJsonStreamEOF(Stream *stream) { return zMemStreamEOF(stream); }

bool zJsonStreamError(Stream *stream) { return zMemStreamError(stream); }

int64_t zJsonStreamTell(Stream *stream) { return zMemStreamTell(stream); }

bool zJsonStreamSeek(Stream *stream, int64_t offset, int32_t whence) {
    return zMemStreamSeek(stream, offset, whence);
}

bool zJsonStreamRewind(Stream *stream) { return zMemStreamRewind(stream); }
