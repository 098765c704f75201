#include "common/buffer.hpp"

#include "common/failure.hpp"
#include "common/format.hpp"
#include "common/guard.hpp"
#include "common/utf.hpp"

#include "zev/str.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace zev {
namespace {

constexpr uint64_t kStep = 4096;
enum : uint32_t { kBytes, kNarrow, kWide };

uint64_t position(const Buffer *buffer) {
    return static_cast<uint64_t>(buffer->cursor - buffer->data);
}

// `count` bytes were put at the cursor. Behind the end there is always a terminator.
void advance(Buffer *buffer, uint64_t count) {
    buffer->cursor += count;
    if (position(buffer) > buffer->size) buffer->size = position(buffer);
    memset(buffer->data + buffer->size, 0, buffer->terminator);
}

} // namespace

bool buffer_init(Buffer *buffer, uint32_t kind, uint64_t capacity) {
    if (!buffer || kind > kWide) return fail_args();
    if (!capacity) capacity = kStep;
    const uint64_t terminator = kind == kWide ? 2 : 1;
    if (capacity > INT64_MAX - terminator) return fail_memory();
    auto *data = static_cast<uint8_t *>(calloc(capacity + terminator, 1));
    if (!data) return fail_memory();
    *buffer = {kind, data, data, 0, capacity, terminator};
    return true;
}

void buffer_cleanup(Buffer *buffer) {
    if (!buffer) return;
    free(buffer->data);
    *buffer = {};
}

uint64_t buffer_room(const Buffer *buffer) {
    if (!buffer) return fail_args(), 0;
    // The cursor of a buffer that was sought beyond its end may stand behind the capacity.
    return position(buffer) < buffer->capacity ? buffer->capacity - position(buffer) : 0;
}

bool buffer_reserve(Buffer *buffer, uint64_t count) {
    if (!buffer) return fail_args();
    // The cursor may stand one behind the end, which a full block has no room for.
    const uint64_t offset = position(buffer);
    if (offset <= buffer->capacity && count <= buffer->capacity - offset) return true;
    if (count > INT64_MAX - offset - kStep - buffer->terminator) return fail_memory();
    const uint64_t capacity = offset + count + kStep;
    void *data = realloc(buffer->data, capacity + buffer->terminator);
    if (!data) return fail_memory();
    buffer->data = static_cast<uint8_t *>(data);
    buffer->cursor = buffer->data + offset;
    buffer->capacity = capacity;
    return true;
}

int64_t buffer_tell(const Buffer *buffer) {
    if (!buffer) return fail_args(), -1;
    return static_cast<int64_t>(position(buffer));
}

bool buffer_seek(Buffer *buffer, int64_t offset, int32_t whence) {
    if (!buffer) return fail_args();
    const auto size = static_cast<int64_t>(buffer->size);
    int64_t target = 0;
    if (whence == 0) target = offset;
    if (whence == 1 && __builtin_add_overflow(buffer_tell(buffer), offset, &target))
        target = size + 1;
    if (whence == 2 && __builtin_add_overflow(size, offset, &target)) target = size + 1;
    // One past the end stands for whatever lies beyond it; a stream's end of file is told by it.
    if (target < 0) target = 0;
    if (target > size) target = size + 1;
    buffer->cursor = buffer->data + target;
    return true;
}

uint64_t buffer_read(Buffer *buffer, void *target, uint64_t count) {
    if (!buffer || !target) return fail_args(), 0;
    const uint64_t offset = position(buffer);
    const uint64_t left = offset < buffer->size ? buffer->size - offset : 0;
    if (count > left) count = left;
    memcpy(target, buffer->cursor, count);
    buffer->cursor += count;
    return count;
}

uint64_t buffer_write(Buffer *buffer, const void *source, uint64_t count) {
    if (!buffer || !source) return fail_args(), 0;
    if (!buffer_reserve(buffer, count)) return 0;
    memcpy(buffer->cursor, source, count);
    advance(buffer, count);
    return count;
}

uint64_t buffer_write_stream(Buffer *buffer, Stream *source, uint64_t count) {
    if (!buffer || !source) return fail_args(), 0;
    if (!buffer_reserve(buffer, count)) return 0;
    uint64_t got = zStreamRead(source, buffer->cursor, count);
    if (zStreamError(source)) got = 0;
    advance(buffer, got); // with 0, too: the read may have gone over the terminator
    return got;
}

bool buffer_add_narrow(Buffer *buffer, const char *text) {
    if (!buffer || !text) return fail_args();
    const uint64_t count = strlen(text);
    if (buffer->kind != kWide) return buffer_write(buffer, text, count) == count;
    // Not converted in place: after a seek the cursor may stand at an odd byte.
    Wide wide(wide_dup(text, count));
    if (!wide) return fail_memory();
    return buffer_add_wide(buffer, wide.get());
}

bool buffer_add_wide(Buffer *buffer, const zwchar *text) {
    if (!buffer || !text) return fail_args();
    const uint64_t count = zStrlenW(text), bytes = count * sizeof(zwchar);
    if (buffer->kind != kNarrow) return buffer_write(buffer, text, bytes) == bytes;
    const uint64_t length = utf8_from_wide(text, count, nullptr);
    if (!buffer_reserve(buffer, length)) return false;
    advance(buffer, utf8_from_wide(text, count, reinterpret_cast<char *>(buffer->cursor)));
    return true;
}

bool buffer_add_format(Buffer *buffer, const zwchar *format, ...) {
    if (!buffer || !format) return fail_args();
    va_list arguments;
    va_start(arguments, format);
    Wide text(format_wide_dup(format, arguments));
    va_end(arguments);
    if (!text) return fail_args();
    return buffer_add_wide(buffer, text.get());
}

} // namespace zev
