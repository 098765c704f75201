// Buffer: a growing block of bytes (kind 0), UTF-8 (1) or wide text (2). All sizes in bytes.
// The bytes behind the stored ones are zero, so that data reads as a terminated string.
#pragma once

#include "zev/stream.h"

namespace zev {

bool buffer_init(Buffer *buffer, uint32_t kind, uint64_t capacity); // capacity 0 means 4096
void buffer_cleanup(Buffer *buffer);
bool buffer_reserve(Buffer *buffer, uint64_t count); // room for count bytes at the cursor
int64_t buffer_tell(const Buffer *buffer);
bool buffer_seek(Buffer *buffer, int64_t offset, int32_t whence);
uint64_t buffer_read(Buffer *buffer, void *target, uint64_t count);
uint64_t buffer_write(Buffer *buffer, const void *source, uint64_t count);

} // namespace zev
