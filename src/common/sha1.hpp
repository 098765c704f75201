// SHA-1 of plain bytes, without an object header.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zev {

bool sha1(const void *data, size_t size, uint8_t digest[20]);

} // namespace zev
