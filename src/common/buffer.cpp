// Buffer. What always holds: the block has `capacity` and `terminator` bytes, the terminator behind
// `size` is zero, and the cursor stands at most one byte behind `size`.
#include "common/buffer.hpp"

#include "common/failure.hpp"

#include <cstdlib>
#include <cstring>

namespace zev {
namespace {

constexpr uint64_t kStep = 4096;
constexpr uint32_t kWide = 2; // the last of the kinds

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

} // namespace zev
