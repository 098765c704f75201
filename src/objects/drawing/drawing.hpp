// The manifest record, for the families of the drawing store, and the byte form of its keys.
#pragma once

#include "common/guard.hpp"
#include "common/reader.hpp"
#include "objects/drawing/table.hpp"
#include "zev/drawing.h"
#include "zev/stream.h"
#include "zev/vector.h"

struct Drawing {
    uint32_t major = 1;
    uint32_t minor = 1;
    Oid table{};
    DrawingKey header{};
    DrawingKey summary{};
    DrawingKey ds{};
    DrawingKey vba{};
    zev::Owned<Vector, zVectorFree> classes; // of DrawingKey
    zev::Owned<Vector, zVectorFree> objects; // of DrawingKey
    zev::Owned<Stream, zStreamFree> reference;
    uint32_t thumbnail_size = 0;
    zev::Malloced<uint8_t> thumbnail;
};

namespace zev {

using DrawingPtr = Owned<Drawing, zDrawingFree>;

constexpr KeyBytes key_bytes(const DrawingKey &key) {
    KeyBytes bytes{};
    store_u64(bytes.data(), key.tag);
    store_u64(bytes.data() + 8, key.object);
    return bytes;
}
constexpr DrawingKey key_from(const uint8_t *bytes) {
    return {load_u64(bytes), load_u64(bytes + 8)};
}

constexpr bool same_key(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}

inline std::span<const DrawingKey> keys_of(const Vector *keys) {
    return {static_cast<const DrawingKey *>(zVectorDataConst(keys)), zVectorSize(keys)};
}

// A new list of 16-byte keys.
Owned<Vector, zVectorFree> new_keys(uint64_t capacity);
// `count` further slots of a list, for the caller to fill; null when memory ran out.
DrawingKey *extend_keys(Vector *keys, uint64_t count);
// Turns keys that were read into the slots as bytes into numbers, in place.
void decode_keys(DrawingKey *keys, uint64_t count);

// The manifest at a stream's start, whatever its check word, which `check` gets; null if it is
// none.
DrawingPtr read_drawing(Stream *stream, uint32_t *check = nullptr);

// Whether the table holds the classes and the objects of a drawing, once what it lacks, single
// blocks too, was fetched from the server of its repository. False with the reason raised: not
// found, with the path, for what the server lacks as well. `has_blocks` becomes false where blocks
// could not be asked for.
bool complete_drawing(Table *table, const Drawing *drawing, const zwchar *path,
                      bool *has_blocks = nullptr);

} // namespace zev
