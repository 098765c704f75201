// Dispatch to a stream's slots, and the portable encoding:
//   integers   1, 2, 4 or 8 bytes, big-endian
//   floats     IEEE-754 binary32 and binary64, big-endian
//   strings    length u32, big-endian, at most 0x4000000; then the bytes (wide text as UTF-8),
//              without a terminator
#include "stream/stream.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/limits.hpp"
#include "common/utf.hpp"

#include <bit>
#include <cerrno>
#include <cstring>

using namespace zev;

void zStreamFree(Stream *stream) {
    if (stream) stream->free(stream);
}

uint64_t zStreamRead(Stream *stream, void *buffer, uint64_t count) {
    if (!stream) return fail_args(), 0;
    return stream->read(stream, buffer, count);
}

uint64_t zev::read_fully(Stream *stream, void *buffer, uint64_t wanted) {
    auto *at = static_cast<uint8_t *>(buffer);
    uint64_t count = 0, got = 1;
    while (count < wanted && got) count += got = zStreamRead(stream, at + count, wanted - count);
    return count;
}

uint64_t zStreamWrite(Stream *stream, const void *buffer, uint64_t count) {
    if (!stream) return fail_args(), 0;
    return stream->write(stream, buffer, count);
}

bool zStreamEOF(Stream *stream) { return stream ? stream->eof(stream) : !fail_args(); }

bool zStreamError(Stream *stream) { return stream ? stream->error(stream) : !fail_args(); }

bool zStreamFlush(Stream *stream) {
    if (!stream) return fail_args();
    return !stream->flush || stream->flush(stream);
}

int64_t zStreamTell(Stream *stream) {
    if (!stream) return fail_args(), -1;
    return stream->tell ? stream->tell(stream) : (fail_os(ENOTSUP), -1);
}

bool zStreamSeek(Stream *stream, int64_t offset, int32_t whence) {
    if (!stream) return fail_args();
    return stream->seek ? stream->seek(stream, offset, whence) : fail_os(ENOTSUP);
}

bool zStreamRewind(Stream *stream) {
    if (!stream) return fail_args();
    return stream->rewind ? stream->rewind(stream) : fail_os(ENOTSUP);
}

uint64_t zStreamSize(Stream *stream) {
    if (!stream) return fail_args(), 0;
    return stream->size ? stream->size(stream) : (fail_os(ENOTSUP), 0);
}

namespace {

template <size_t Size> struct Bits;
template <> struct Bits<1> { using Type = uint8_t; };
template <> struct Bits<2> { using Type = uint16_t; };
template <> struct Bits<4> { using Type = uint32_t; };
template <> struct Bits<8> { using Type = uint64_t; };

template <class T> uint64_t put(Stream *stream, T value) {
    auto bits = std::bit_cast<typename Bits<sizeof(T)>::Type>(value);
    uint8_t bytes[sizeof(T)];
    for (size_t i = sizeof(T); i-- > 0;) {
        bytes[i] = static_cast<uint8_t>(bits);
        if constexpr (sizeof(T) > 1) bits = static_cast<decltype(bits)>(bits >> 8);
    }
    return zStreamWrite(stream, bytes, sizeof bytes);
}

// A short read leaves the value alone.
template <class T> uint64_t get(Stream *stream, T *value) {
    if (!stream || !value) return fail_args(), 0;
    uint8_t bytes[sizeof(T)];
    const uint64_t count = zStreamRead(stream, bytes, sizeof bytes);
    if (count < sizeof bytes) return count;
    typename Bits<sizeof(T)>::Type bits = 0;
    for (uint8_t byte : bytes) {
        if constexpr (sizeof(T) > 1) bits = static_cast<decltype(bits)>(bits << 8);
        bits = static_cast<decltype(bits)>(bits | byte);
    }
    *value = std::bit_cast<T>(bits);
    return count;
}

uint64_t put_text(Stream *stream, const char *text, uint64_t length) {
    if (length > limits::string_bytes) return fail_args(), 0;
    uint64_t count = put(stream, static_cast<uint32_t>(length));
    if (length) count += zStreamWrite(stream, text, length);
    return zStreamError(stream) ? 0 : count;
}

// Memory for the announced text ran out: its bytes are passed over one at a time, so that what
// follows is still read from its place.
void pass_over(Stream *stream, uint64_t count) {
    char byte;
    while (count && zStreamRead(stream, &byte, 1)) --count;
}

// The text of the announced length, padded with zeros where the stream ended early; null without
// a text. `count` gets the bytes read, 0 on failure.
Narrow get_text(Stream *stream, uint64_t *count) {
    *count = 0;
    uint32_t length = 0;
    if (zStreamRdUInt32(stream, &length) < sizeof length) return nullptr;
    if (zStreamError(stream) || zStreamEOF(stream)) return nullptr;
    if (length > limits::string_bytes) return nullptr;
    // Pages of a block that a damaged length asks for are never touched.
    Narrow text(static_cast<char *>(calloc(uint64_t{length} + 1, 1)));
    if (!text) {
        fail_memory();
        pass_over(stream, length);
        return nullptr;
    }
    const uint64_t got = length ? zStreamRead(stream, text.get(), length) : 0;
    if (!zStreamError(stream)) *count = sizeof length + got;
    return text;
}

} // namespace

uint64_t zStreamWrInt8(Stream *stream, int8_t value) { return put(stream, value); }
uint64_t zStreamWrUInt8(Stream *stream, uint8_t value) { return put(stream, value); }
uint64_t zStreamWrInt16(Stream *stream, int16_t value) { return put(stream, value); }
uint64_t zStreamWrUInt16(Stream *stream, uint16_t value) { return put(stream, value); }
uint64_t zStreamWrInt32(Stream *stream, int32_t value) { return put(stream, value); }
uint64_t zStreamWrUInt32(Stream *stream, uint32_t value) { return put(stream, value); }
uint64_t zStreamWrInt64(Stream *stream, int64_t value) { return put(stream, value); }
uint64_t zStreamWrUInt64(Stream *stream, uint64_t value) { return put(stream, value); }
uint64_t zStreamWrFloat(Stream *stream, float value) { return put(stream, value); }
uint64_t zStreamWrDouble(Stream *stream, double value) { return put(stream, value); }

uint64_t zStreamRdInt8(Stream *stream, int8_t *value) { return get(stream, value); }
uint64_t zStreamRdUInt8(Stream *stream, uint8_t *value) { return get(stream, value); }
uint64_t zStreamRdInt16(Stream *stream, int16_t *value) { return get(stream, value); }
uint64_t zStreamRdUInt16(Stream *stream, uint16_t *value) { return get(stream, value); }
uint64_t zStreamRdInt32(Stream *stream, int32_t *value) { return get(stream, value); }
uint64_t zStreamRdUInt32(Stream *stream, uint32_t *value) { return get(stream, value); }
uint64_t zStreamRdInt64(Stream *stream, int64_t *value) { return get(stream, value); }
uint64_t zStreamRdUInt64(Stream *stream, uint64_t *value) { return get(stream, value); }
uint64_t zStreamRdFloat(Stream *stream, float *value) { return get(stream, value); }
uint64_t zStreamRdDouble(Stream *stream, double *value) { return get(stream, value); }

uint64_t zStreamWrStringA(Stream *stream, const char *text) {
    if (!stream || !text) return fail_args(), 0;
    return put_text(stream, text, strlen(text));
}

uint64_t zStreamWrStringW(Stream *stream, const zwchar *text) {
    if (!stream || !text) return fail_args(), 0;
    const uint64_t units = zStrlenW(text);
    const uint64_t length = utf8_from_wide(text, units, nullptr);
    Narrow converted(length <= limits::string_bytes ? utf8_dup(text, units) : nullptr);
    if (length <= limits::string_bytes && !converted) return fail_memory(), 0;
    return put_text(stream, converted.get(), length);
}

uint64_t zStreamRdStringA(Stream *stream, char **text) {
    if (!stream || !text) return fail_args(), 0;
    uint64_t count = 0;
    Narrow read = get_text(stream, &count);
    if (!count) read.reset(zStrdupA(""));
    *text = read.release();
    return count;
}

uint64_t zStreamRdStringW(Stream *stream, zwchar **text) {
    if (!stream || !text) return fail_args(), 0;
    uint64_t count = 0;
    Narrow read = get_text(stream, &count);
    // Zeros in the text end it, like those that pad a short read.
    *text = count ? wide_dup(read.get(), strlen(read.get())) : zStrdupW(u"");
    if (!*text) fail_memory();
    return count;
}
