// Frames of packs. What holds: a length from outside takes no memory.
#include "network/rest/repos/pack_stream.hpp"

namespace zev::rest {

bool PieceReader::add(std::string_view bytes, const Take &take) {
    while (!bytes.empty()) {
        if (!left_) {
            length_ = length_ << 8 | static_cast<uint8_t>(bytes.front());
            bytes.remove_prefix(1);
            if (++digits_ < sizeof length_) continue;
            left_ = length_;
            length_ = digits_ = 0;
            continue;
        }
        const std::string_view part = bytes.substr(0, left_);
        bytes.remove_prefix(part.size());
        left_ -= static_cast<uint32_t>(part.size());
        if (!take(part)) return false;
    }
    return true;
}

bool write_piece(Stream *stream, const void *bytes, uint64_t size) {
    return size <= UINT32_MAX && zStreamWrUInt32(stream, static_cast<uint32_t>(size)) &&
           zStreamWrite(stream, bytes, size) == size;
}

} // namespace zev::rest
