// Rows go out as a pair stream, big-endian: key length u32 (16), key, value length u32, value; a
// key length of 0 ends it. A key is the tag u64 and the object number u64, so that the table's
// order is that of the two numbers; the key of all ones holds the table's tag.

#include "dxf/rows.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace dxf {

namespace {

using OwnedIter = host::Owned<TableIter, zTableIterFree>;
using KeyBytes = std::array<uint8_t, 16>;

constexpr uint64_t kMaxValue = 0x7FFFFFFF; // the top bit of a length ends a pair stream
constexpr int kNearby = 8;                 // rows stepped over before a seek is the better way

constexpr size_t kPoll = 1024; // rows between two looks at the user's break

void show_progress(const Notify *notify, const char *what, size_t done, size_t all) {
    if (notify) zNotifyProgress(notify, u"%s", host::wide(host::say(what, done, all)).c_str());
}

void put_number(uint8_t *out, uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i, value >>= 8) out[i] = static_cast<uint8_t>(value);
}

uint64_t get_number(const uint8_t *in) {
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | in[i];
    return value;
}

KeyBytes to_bytes(const DrawingKey &key) {
    KeyBytes bytes;
    put_number(bytes.data(), key.tag, 8);
    put_number(bytes.data() + 8, key.object, 8);
    return bytes;
}

// The iterator's key; one of another length than a drawing's sorts where its bytes put it.
bool current_key(const TableIter *iter, DrawingKey &key) {
    const void *data = nullptr;
    uint64_t length = 0;
    if (zTableIterDone(iter) || !zTableIterKey(&data, &length, iter)) return false;
    KeyBytes bytes{};
    if (length) memcpy(bytes.data(), data, std::min<uint64_t>(length, bytes.size()));
    key = {get_number(bytes.data()), get_number(bytes.data() + 8)};
    return true;
}

bool seek(TableIter *iter, const DrawingKey &wanted, DrawingKey &at) {
    KeyBytes bytes = to_bytes(wanted);
    zTableIterSeek(iter, bytes.data(), bytes.size());
    return current_key(iter, at);
}

// Moves to the first row not below `wanted`. Most wanted rows are neighbours.
bool advance(TableIter *iter, const DrawingKey &wanted, DrawingKey &at) {
    for (int steps = 0; before(at, wanted); ++steps) {
        if (steps == kNearby) return seek(iter, wanted, at);
        zTableIterNext(iter);
        if (!current_key(iter, at)) return false;
    }
    return true;
}

// The rows as a stream that the library reads from.
struct PairStream : Stream {
    enum class Piece : uint8_t { head, value, end };

    PairStream(const std::vector<Row> &rows, const Notify *notify)
        : Stream{}, rows(rows), notify(notify) {
        read = [](Stream *stream, void *buffer, uint64_t count) {
            return static_cast<PairStream *>(stream)->take(static_cast<char *>(buffer), count);
        };
        write = [](Stream *, const void *, uint64_t) -> uint64_t { return 0; };
        free = [](Stream *) {};
        eof = [](Stream *stream) { return static_cast<PairStream *>(stream)->ended(); };
        error = [](Stream *stream) { return static_cast<PairStream *>(stream)->stopped; };
    }

    bool ended() const { return piece == Piece::end && left.empty(); }

    uint64_t take(char *buffer, uint64_t count) {
        uint64_t done = 0;
        while (done < count && (!left.empty() || next_piece())) {
            uint64_t part = std::min<uint64_t>(count - done, left.size());
            left.copy(buffer + done, part);
            left.remove_prefix(part);
            done += part;
        }
        return done;
    }

    // Lengths and key, then the value, of each row; then the end mark. False past it.
    bool next_piece() {
        if (piece == Piece::end) return false;
        if (piece == Piece::head) {
            piece = Piece::value;
            left = rows[next++].value;
            return true;
        }
        if (next % kPoll == 0) {
            stopped = zNotifyIsUsrbrk(notify);
            show_bytes();
        }
        if (stopped) return false;
        if (next == rows.size()) return finish();
        piece = Piece::head;
        KeyBytes key = to_bytes(rows[next].key);
        put_number(fixed.data(), key.size(), 4);
        memcpy(fixed.data() + 4, key.data(), key.size());
        put_number(fixed.data() + 20, rows[next].value.size(), 4);
        left = {reinterpret_cast<const char *>(fixed.data()), fixed.size()};
        return true;
    }

    // A large file takes a while, and its rows are of any size.
    void show_bytes() {
        for (; counted < next; ++counted) stored += rows[counted].value.size();
        if (!all)
            for (const Row &row : rows) all += row.value.size();
        if (!notify) return;
        zNotifyProgress(notify, u"%s / %s", zNumToHumanBytes(stored), zNumToHumanBytes(all));
    }

    bool finish() {
        piece = Piece::end;
        fixed.fill(0);
        left = {reinterpret_cast<const char *>(fixed.data()), 4};
        return true;
    }

    const std::vector<Row> &rows;
    const Notify *notify;
    std::array<uint8_t, 24> fixed{}; // key length, key, value length
    std::string_view left;           // of the piece at hand
    size_t next = 0;                 // row that has not been begun
    size_t counted = 0;              // rows whose bytes are in `stored`
    uint64_t stored = 0, all = 0;
    Piece piece = Piece::value;
    bool stopped = false;
};

} // namespace

std::u16string table_path(Repository *repository, const Oid *id) {
    zwchar path[Z_PATH_MAX];
    host::check(zTablePlace(path, repository, id));
    return path;
}

namespace {

using Open = Table *(*)(Repository *, const Oid *);
host::OwnedTable opened(Open open, Repository *repository, const Oid *id, const std::string &name) {
    if (!zPathDirExists(table_path(repository, id).c_str()))
        throw host::Failed(host::kNotFound,
                           host::say("%s: its table is not in this working copy", name));
    return host::OwnedTable(host::check(open(repository, id), name));
}

} // namespace

host::OwnedTable look_at_table(Repository *repository, const Oid *id, const std::string &name) {
    return opened(zTableLook, repository, id, name);
}

host::OwnedTable open_table(Repository *repository, const Oid *id, const std::string &name) {
    return opened(zTableByid, repository, id, name);
}

std::string table_owner(Table *table) {
    zwchar path[Z_PATH_MAX];
    return zDrawingTableBackwardRef(path, table) ? host::narrow(path) : std::string();
}

uint64_t read_rows(Table *table, const std::vector<DrawingKey> &keys, const Notify *notify,
                   const std::function<void(size_t place, std::string_view value)> &visit) {
    if (keys.empty()) return 0;
    OwnedIter iter(host::check(zTableIterNew(table)));
    uint64_t found = 0;
    DrawingKey at{};
    bool more = seek(iter.get(), keys.front(), at);
    for (size_t place = 0; more && place < keys.size(); ++place) {
        if (place % kPoll == 0) {
            host::stop_on_break(notify);
            show_progress(notify, "reading %s of %s rows", place, keys.size());
        }
        more = advance(iter.get(), keys[place], at);
        if (!more || before(keys[place], at)) continue;
        const void *value = nullptr;
        uint64_t length = 0;
        host::check(zTableIterValue(&value, &length, iter.get()));
        visit(place, {static_cast<const char *>(value), length});
        ++found;
    }
    return found;
}

std::string mixed_text(const std::string &name) {
    return host::say("%s: its table holds other rows than were imported, as those of another copy "
                     "of the project would be",
                     name);
}

void fail_mixed(const std::string &name) { throw host::Failed(host::kOther, mixed_text(name)); }

uint64_t highest_tag(Table *table) {
    OwnedIter iter(host::check(zTableIterNew(table)));
    DrawingKey at{};
    zTableIterSeekToLast(iter.get());
    if (!current_key(iter.get(), at)) return 0;
    if (at.tag != UINT64_MAX) return at.tag;
    zTableIterPrev(iter.get());
    return current_key(iter.get(), at) ? at.tag : 0;
}

void write_rows(Table *table, const std::vector<Row> &rows, const Notify *notify) {
    for (const Row &row : rows)
        if (row.value.size() > kMaxValue)
            throw host::Failed(host::kOther, "a record of more than 2 GiB can't be stored");
    PairStream stream(rows, notify);
    bool read = zTableReadStream(table, &stream);
    if (stream.stopped) throw host::Failed(host::kCanceled, "cancelled");
    if (!read) host::fail_raised();
    if (!stream.ended()) throw host::Failed(host::kStore, "the table took only a part of the rows");
}

} // namespace dxf
