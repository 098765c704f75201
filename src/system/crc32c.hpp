// The sum by which LevelDB checks its blocks.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zev {

uint32_t crc32c(const void *data, size_t size);

} // namespace zev
