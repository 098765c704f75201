// The form in which a pack travels, the same both ways: pieces of u32 length, big-endian, and so
// many bytes each, up to the end of the stream.
#pragma once

#include "zev/stream.h"

#include <cstdint>
#include <functional>
#include <string_view>

namespace zev::rest {

// Takes such a stream as it comes, in any parts.
class PieceReader {
  public:
    using Take = std::function<bool(std::string_view)>;

    // Hands over the bytes of the pieces in their order, until `take` gives false, which is given
    // back. May throw.
    bool add(std::string_view bytes, const Take &take);
    bool is_whole() const { return !left_ && !digits_; } // what came ends with a piece

  private:
    uint32_t left_ = 0;   // of the piece
    uint32_t length_ = 0; // of the next one, as far as it is there
    uint32_t digits_ = 0; // bytes of that
};

// One piece. False when it was not written whole.
bool write_piece(Stream *stream, const void *bytes, uint64_t size);

} // namespace zev::rest
