// Frames of packs. What holds: a length from outside is held against the bytes that are left, and
// takes no memory.
#include "network/rest/repos/pack_stream.hpp"

#include "common/reader.hpp"
#include "network/rest/repos/content.hpp"

#include <algorithm>
#include <vector>

namespace zev::rest {

namespace {

constexpr uint64_t kBuffer = 2u << 20;

} // namespace

bool read_pieces(Stream *stream, const std::function<bool(const void *, uint64_t)> &take) {
    uint64_t left = bytes_left(stream);
    std::vector<uint8_t> buffer(std::clamp<uint64_t>(left, 4, kBuffer));
    while (left) {
        if (left < 4 || zStreamRead(stream, buffer.data(), 4) != 4) return false;
        uint64_t piece = load_u32(buffer.data());
        left -= 4;
        if (piece > left) return false;
        left -= piece;
        while (piece) {
            const uint64_t part = std::min<uint64_t>(piece, buffer.size());
            if (zStreamRead(stream, buffer.data(), part) != part) return false;
            if (!take(buffer.data(), part)) return true;
            piece -= part;
        }
    }
    return !zStreamError(stream);
}

bool write_piece(Stream *stream, const void *bytes, uint64_t size) {
    return size <= UINT32_MAX && zStreamWrUInt32(stream, static_cast<uint32_t>(size)) &&
           zStreamWrite(stream, bytes, size) == size;
}

} // namespace zev::rest
