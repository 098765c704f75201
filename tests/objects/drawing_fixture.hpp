// The bytes of drawings, keys and tables.
#pragma once

#include "objects/drawing/drawing.hpp"
#include "support.hpp"

namespace test {

using zev::DrawingPtr;
using zev::key_bytes;
using zev::Malloced;
using zev::TablePtr;
using StreamPtr = zev::Owned<Stream, zStreamFree>;
using VectorPtr = zev::Owned<Vector, zVectorFree>;
using RepositoryPtr = zev::Owned<Repository, zRepositoryFree>;

constexpr uint64_t minus(uint64_t n) { return 0 - n; }

inline std::string be32(uint64_t value) {
    std::string text(4, 0);
    for (size_t i = 4; i--; value >>= 8) text[i] = char(value & 255);
    return text;
}
inline std::string raw(const DrawingKey &key) {
    const zev::KeyBytes bytes = key_bytes(key);
    return {bytes.begin(), bytes.end()};
}
inline StreamPtr stream_of(const std::string &bytes) {
    StreamPtr stream{zMemStream(0, 0)};
    zStreamWrite(stream.get(), bytes.data(), bytes.size());
    zStreamRewind(stream.get());
    return stream;
}
inline std::string rest_of(Stream *stream) {
    std::string text, block(65536, 0);
    while (uint64_t got = zStreamRead(stream, block.data(), block.size()))
        text.append(block, 0, got);
    return text;
}
inline bool put(Table *table, const DrawingKey &key, const std::string &value) {
    return zDrawingKeyPutData(table, &key, value.data(), value.size());
}
inline std::string get(Table *table, const DrawingKey &key) {
    void *value;
    uint64_t length;
    if (!zDrawingKeyGetData(table, &key, &value, &length)) return "(none)";
    return {Malloced<char>(static_cast<char *>(value)).get(), length};
}

} // namespace test
