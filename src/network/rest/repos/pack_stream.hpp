// The form in which a pack travels, the same both ways: pieces of u32 length, big-endian, and so
// many bytes each, up to the end of the stream.
#pragma once

#include "zev/stream.h"

#include <cstdint>
#include <functional>

namespace zev::rest {

// Hands over the bytes of the pieces in their order, in parts that fit the reader's buffer, until
// `take` gives false, which is no failure. False for a stream that can't be read or breaks off
// within a piece. May throw.
bool read_pieces(Stream *stream, const std::function<bool(const void *, uint64_t)> &take);

// One piece. False when it was not written whole.
bool write_piece(Stream *stream, const void *bytes, uint64_t size);

} // namespace zev::rest
