// How keys and rows travel. Numbers are big-endian.
//
// Key list
//   count u32, then 16 bytes a key: tag u64, object u64
// Pair stream
//   repeated: key length u32, key, value length u32, value
//   end mark: a key length of 0
//
// A pair stream may break off anywhere: the pairs before the break count. A length with the top
// bit set, or beyond what follows, is such a break.
#include "objects/drawing/drawing.hpp"

#include "common/limits.hpp"
#include "common/reader.hpp"
#include "stream/stream.hpp"

#include <algorithm>
#include <cstring>
#include <vector>

namespace zev {
namespace {

constexpr uint32_t kTopBit = 0x80000000;

// A stream of the C library takes blocks at a fraction of what single numbers cost.
class BlockWriter {
  public:
    explicit BlockWriter(Stream *stream) : stream_(stream) { block_.reserve(kBlock); }

    void raw(const void *bytes, uint64_t count) {
        if (block_.size() + count > kBlock) write_block();
        if (count > kBlock) return write(bytes, count);
        const auto *from = static_cast<const uint8_t *>(bytes);
        block_.insert(block_.end(), from, from + count);
    }
    void u32(uint64_t value) {
        uint8_t bytes[4];
        store_u32(bytes, static_cast<uint32_t>(value));
        raw(bytes, sizeof bytes);
    }
    // An empty key would read as the end mark: such a pair is left out.
    void pair(Bytes key, Bytes value) {
        if (key.empty()) return;
        ok_ = ok_ && key.size() < kTopBit && value.size() < kTopBit;
        u32(key.size());
        raw(key.data(), key.size());
        u32(value.size());
        raw(value.data(), value.size());
    }
    // Hands over what is left, then back to the start; false when any write came short.
    bool finish() {
        write_block();
        return ok_ && zStreamRewind(stream_);
    }

  private:
    static constexpr uint64_t kBlock = 256 * 1024;

    void write(const void *bytes, uint64_t count) {
        ok_ = ok_ && zStreamWrite(stream_, bytes, count) == count;
    }
    void write_block() {
        if (!block_.empty()) write(block_.data(), block_.size());
        block_.clear();
    }

    Stream *stream_;
    std::vector<uint8_t> block_;
    bool ok_ = true;
};

bool is_key_vector(const Vector *keys) {
    return zVectorIsValid(keys) && zVectorType(keys) == Z_TYPE_STRUCT;
}

Stream *write_key_list(std::span<const DrawingKey> keys) {
    Owned<Stream, zStreamFree> stream{temp_stream()};
    if (!stream) return nullptr;
    BlockWriter writer(stream.get());
    writer.u32(keys.size());
    for (const DrawingKey &key : keys) {
        const KeyBytes bytes = key_bytes(key);
        writer.raw(bytes.data(), bytes.size());
    }
    return writer.finish() ? stream.release() : nullptr;
}

// Calls `visit` with each pair of the table in key order; false, with the store error raised,
// when some could not be read.
template <class F> bool each_pair(Table *table, F visit) {
    ldb::Iterator iter{leveldb_create_iterator(table->database.get(), table->walking.get())};
    for (leveldb_iter_seek_to_first(iter.get()); leveldb_iter_valid(iter.get());
         leveldb_iter_next(iter.get())) {
        size_t key_length = 0, value_length = 0;
        const char *key = leveldb_iter_key(iter.get(), &key_length);
        const char *value = leveldb_iter_value(iter.get(), &value_length);
        visit(Bytes{reinterpret_cast<const uint8_t *>(key), key_length},
              Bytes{reinterpret_cast<const uint8_t *>(value), value_length});
    }
    ldb::Text error;
    leveldb_iter_get_error(iter.get(), out(error));
    if (error) return fail_store(error.get());
    return true;
}

// Reads up to `count` bytes into the buffer, which grows by steps: the length came from outside.
uint64_t read_up_to(Stream *stream, std::vector<uint8_t> &buffer, uint64_t count) {
    uint64_t done = 0;
    while (done < count) {
        const uint64_t part = std::min(count - done, limits::step);
        if (buffer.size() < done + part) buffer.resize(done + part);
        const uint64_t got = read_fully(stream, buffer.data() + done, part);
        done += got;
        if (got < part) break;
    }
    return done;
}

} // namespace

// A value and the key length of the next pair come by one read, as do a key and its value's
// length: never more than the pairs and the end mark are taken from the stream.
bool read_pairs(Stream *stream, const std::function<void(Bytes key, Bytes value)> &pair,
                PairLimits limits) {
    std::vector<uint8_t> key, value;
    if (read_up_to(stream, value, 4) < 4) return true;
    uint64_t key_length = load_u32(value.data());
    while (key_length && key_length < kTopBit) {
        if (key_length > limits.key) return false;
        if (read_up_to(stream, key, key_length + 4) < key_length + 4) return true;
        const uint64_t length = load_u32(key.data() + key_length);
        if (length >= kTopBit) return true;
        if (length > limits.value) return false;
        const uint64_t got = read_up_to(stream, value, length + 4);
        if (got < length) return true;
        pair({key.data(), key_length}, {value.data(), length});
        if (got < length + 4) return true;
        key_length = load_u32(value.data() + length);
    }
    return true;
}

Stream *write_rows(Table *table, const Vector *keys, bool &is_damaged) {
    Owned<Stream, zStreamFree> stream{temp_stream()};
    if (!stream) return nullptr;
    BlockWriter writer(stream.get());
    TableLookup lookup(table);
    for (const DrawingKey &key : keys_of(keys)) {
        const KeyBytes bytes = key_bytes(key);
        if (lookup.find(bytes)) {
            writer.pair(bytes, lookup.value());
            continue;
        }
        is_damaged = is_damaged || lookup.is_broken();
        lookup.fail();
    }
    writer.u32(0);
    return writer.finish() ? stream.release() : nullptr;
}

} // namespace zev

using namespace zev;

bool zDrawingKeyWrite(Stream *stream, const DrawingKey *key) {
    if (!stream || !key) return fail_args();
    const KeyBytes bytes = key_bytes(*key);
    return zStreamWrite(stream, bytes.data(), bytes.size()) == bytes.size();
}

bool zDrawingKeyRead(Stream *stream, DrawingKey *key) {
    if (!stream || !key) return fail_args();
    KeyBytes bytes;
    if (zStreamRead(stream, bytes.data(), bytes.size()) != bytes.size()) return false;
    *key = key_from(bytes.data());
    return true;
}

Stream *zDrawingKeyVectorWrite(const Vector *keys) try {
    if (!is_key_vector(keys) || zVectorSize(keys) > UINT32_MAX) return fail_args();
    return write_key_list(keys_of(keys));
} catch (...) {
    return fail_thrown();
}

Stream *zDrawingKeyVectorWriteTrunk(const Vector *keys, uint64_t limit, uint64_t *cursor) try {
    if (!is_key_vector(keys) || !cursor) return fail_args();
    const auto all = keys_of(keys);
    const auto left = all.subspan(std::min<uint64_t>(*cursor, all.size()));
    const auto part = left.first(std::min<uint64_t>({limit, left.size(), UINT32_MAX}));
    Stream *stream = write_key_list(part);
    if (stream) *cursor += part.size();
    return stream;
} catch (...) {
    return fail_thrown();
}

// A list that breaks off is refused whole.
Vector *zDrawingKeyVectorRead(Stream *stream) {
    if (!stream) return fail_args();
    uint8_t bytes[4];
    if (read_fully(stream, bytes, sizeof bytes) != sizeof bytes) return nullptr;
    uint64_t left = load_u32(bytes);
    if (!left) return nullptr;
    constexpr uint64_t kStep = limits::step / sizeof(DrawingKey);
    auto keys = new_keys(std::min(left, kStep));
    while (keys && left) {
        const uint64_t part = std::min(left, kStep);
        DrawingKey *slots = extend_keys(keys.get(), part);
        const uint64_t size = part * sizeof *slots;
        if (!slots || read_fully(stream, slots, size) != size) return nullptr;
        decode_keys(slots, part);
        left -= part;
    }
    return keys.release();
}

Stream *zTableWriteOut(Table *table) try {
    if (!table) return fail_args();
    Owned<Stream, zStreamFree> stream{temp_stream()};
    if (!stream) return nullptr;
    BlockWriter writer(stream.get());
    if (!each_pair(table, [&](Bytes key, Bytes value) { writer.pair(key, value); }))
        return nullptr; // a table with a hole must not pass for the whole one
    writer.u32(0);
    return writer.finish() ? stream.release() : nullptr;
} catch (...) {
    return fail_thrown();
}

Stream *zTablePartialWriteOut(Table *table, const Vector *keys) try {
    if (!table || !is_key_vector(keys)) return fail_args();
    bool is_damaged = false;
    return write_rows(table, keys, is_damaged);
} catch (...) {
    return fail_thrown();
}

// A break in the stream is its end; only a store that refuses a pair makes this fail.
bool zTableReadStream(Table *table, Stream *stream) try {
    if (!table || !stream) return fail_args();
    TableBatch batch(table);
    read_pairs(stream, [&](Bytes key, Bytes value) { batch.put(key, value); });
    return batch.flush();
} catch (...) {
    return fail_thrown();
}

Table *zTableDuplicate(Table *table) try {
    if (!table || !table->owner) return fail_args();
    TablePtr copy{zTableRand(table->owner)};
    if (!copy) return nullptr;
    TableBatch batch(copy.get());
    const bool read = each_pair(table, [&](Bytes key, Bytes value) { batch.put(key, value); });
    batch.flush();
    if (read) return copy.release();
    discard_table(std::move(copy)); // half a copy is of no use
    return nullptr;
} catch (...) {
    return fail_thrown();
}
