// The bytes of drawings, keys and tables.
#pragma once

#include "objects/drawing/drawing.hpp"
#include "support.hpp"

#include <random>

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

// Bytes that no decompression would stumble over, more than a block of a table holds.
inline std::string noise(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, 0);
    for (char &c : bytes) c = static_cast<char>(random());
    return bytes;
}
// Flips bits in the sorted files of a closed table, into which all rows move when it is opened
// once more: of what `row` begins with, or here and there.
inline void damage_table(const std::filesystem::path &table, const std::string &row = {}) {
    for (auto &entry : std::filesystem::directory_iterator(table)) {
        if (entry.path().extension() != ".ldb") continue;
        std::string bytes = read(entry);
        size_t first = row.empty() ? 100 : bytes.find(row.substr(0, 64));
        const size_t last = row.empty() ? bytes.size() / 2 : first == bytes.npos ? 0 : first + 1;
        for (; first < last; first += 1000) bytes[first] ^= 1;
        write(entry, bytes);
    }
}

// Flips a bit in the block behind that of a row whose value is larger than one, in a closed table
// whose rows have moved so.
inline void damage_behind(const std::filesystem::path &table, const std::string &value) {
    for (auto &file : std::filesystem::directory_iterator(table)) {
        if (file.path().extension() != ".ldb") continue;
        std::string bytes = read(file);
        const size_t found = bytes.find(value.substr(0, 64));
        if (found == bytes.npos) continue;
        bytes[found + value.size() + 16] ^= 1; // 13 bytes end the block
        write(file, bytes);
    }
}

} // namespace test
