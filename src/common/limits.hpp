// Bounds on what is read from files, peers and users, each with its reason.
#pragma once

#include <cstdint>

namespace zev::limits {

// Open brackets in a JSON text, the mode stack's bottom not counted.
inline constexpr uint32_t json_depth = 255;
// A string of the stream encoding; larger ones are refused on both sides.
inline constexpr uint32_t string_bytes = 0x4000000;
// Name of a section of a drawing file; the reader holds it in memory.
inline constexpr uint32_t section_name = 256;
// Sections of a drawing file: five are written, more can only be a damaged count.
inline constexpr uint32_t section_count = 64;
// What is allocated at once for data whose true size is not yet known.
inline constexpr uint64_t step = 1u << 20;
// Bytes put into one LevelDB batch: a larger one is replayed whole by the next open.
inline constexpr uint64_t batch_bytes = 1u << 20;

} // namespace zev::limits
