// What the stream kinds offer to the library only. A kind is a record that derives from Stream and
// sets its slots.
#pragma once

#include "zev/stream.h"

#include <type_traits>

namespace zev {

// The record of a memory stream, which C knows: its head stands in front instead of being its base.
static_assert(std::is_standard_layout_v<MemStream> && offsetof(MemStream, head) == 0);
inline MemStream *memory_stream(Stream *stream) { return reinterpret_cast<MemStream *>(stream); }

// A temporary file without a name, "w+b": nothing stays behind, even after a crash. For what the
// library itself puts aside; null with a standard error when there is no place for it.
Stream *temp_stream();

// The same, but in memory as long as it is small.
Stream *spill_stream();

// Reads until `wanted` bytes are there or no more come: sockets and what decompresses give them
// piece by piece. How many there are.
uint64_t read_fully(Stream *stream, void *buffer, uint64_t wanted);

// zStreamUncompress with a bound, for what comes from a peer: more than `most` bytes are class 5,
// logged. At most one block beyond the bound is made before that is seen.
Stream *uncompress_stream(Stream *stream, const zwchar *encoding, uint64_t most);

} // namespace zev
