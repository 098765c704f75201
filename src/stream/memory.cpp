// The memory kind: a stream over the Buffer inside its record.
#include "common/buffer.hpp"

#include "common/failure.hpp"
#include "stream/stream.hpp"

#include <memory>
#include <new>

using namespace zev;

namespace {

// Without a flush: there is nothing to push out.
constexpr Stream kMemHead = {.read = zMemStreamRead,
                             .write = zMemStreamWrite,
                             .free = zMemStreamFree,
                             .flush = nullptr,
                             .eof = zMemStreamEOF,
                             .error = zMemStreamError,
                             .tell = zMemStreamTell,
                             .seek = zMemStreamSeek,
                             .rewind = zMemStreamRewind,
                             .size = zMemStreamSize};

Buffer *buffer_of(Stream *stream, Here at = {}) {
    if (!stream) return fail_args(at);
    return &memory_stream(stream)->buffer;
}

} // namespace

Stream *zMemStream(uint32_t mode, uint64_t capacity) {
    std::unique_ptr<MemStream> stream(new (std::nothrow) MemStream{});
    if (!zMemStreamInit(stream.get(), mode, capacity)) return nullptr;
    return &stream.release()->head;
}

bool zMemStreamInit(MemStream *stream, uint32_t mode, uint64_t capacity) {
    if (!stream) return fail_memory();
    *stream = {};
    if (!buffer_init(&stream->buffer, mode, capacity)) return false;
    stream->head = kMemHead;
    return true;
}

void zMemStreamCleanup(MemStream *stream) {
    if (!stream) return;
    buffer_cleanup(&stream->buffer);
    *stream = {};
}

uint64_t zMemStreamRead(Stream *stream, void *buffer, uint64_t count) {
    if (!stream || !buffer) return fail_args(), 0;
    return buffer_read(buffer_of(stream), buffer, count);
}

uint64_t zMemStreamWrite(Stream *stream, const void *buffer, uint64_t count) {
    if (!stream || !buffer) return fail_args(), 0;
    return buffer_write(buffer_of(stream), buffer, count);
}

void zMemStreamFree(Stream *stream) {
    std::unique_ptr<MemStream> record(memory_stream(stream));
    zMemStreamCleanup(record.get());
}

bool zMemStreamEOF(Stream *stream) {
    const Buffer *buffer = buffer_of(stream);
    return !buffer || buffer->cursor >= buffer->data + buffer->size;
}

bool zMemStreamError(Stream *stream) { return !buffer_of(stream); }

int64_t zMemStreamTell(Stream *stream) {
    const Buffer *buffer = buffer_of(stream);
    return buffer ? buffer_tell(buffer) : -1;
}

bool zMemStreamSeek(Stream *stream, int64_t offset, int32_t whence) {
    Buffer *buffer = buffer_of(stream);
    return buffer && buffer_seek(buffer, offset, whence);
}

bool zMemStreamRewind(Stream *stream) {
    Buffer *buffer = buffer_of(stream);
    return buffer && buffer_seek(buffer, 0, 0);
}

uint64_t zMemStreamSize(Stream *stream) {
    const Buffer *buffer = buffer_of(stream);
    return buffer ? buffer->size : 0;
}
