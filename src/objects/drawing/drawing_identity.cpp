// One table serves one file of a working copy. The table's zero key says which: the path below
// the work directory, "./" in front, forward slashes, UTF-16LE with its zero. A drawing that was
// copied or moved still names the table of its source; confirming gives it one of its own.
#include "objects/drawing/drawing.hpp"
#include "objects/store/repository.hpp"

#include "zev/oid.h"
#include "zev/path.h"
#include "zev/repository.h"

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

namespace zev {
namespace {

bool relative_to(zwchar *target, const zwchar *path, const zwchar *base) {
    zwchar native[Z_PATH_MAX];
    return zPathMakeRelative(native, path, base) && zPathReplaceBackslash(target, native);
}

std::vector<uint8_t> encode_reference(const zwchar *path) {
    std::vector<uint8_t> bytes;
    const uint64_t units = zStrlenW(path) + 1;
    bytes.reserve(2 * units);
    for (uint64_t i = 0; i < units; ++i) {
        bytes.push_back(static_cast<uint8_t>(path[i]));
        bytes.push_back(static_cast<uint8_t>(path[i] >> 8));
    }
    return bytes;
}

// False for a value that is no text: of odd length, or without its zero.
bool decode_reference(Bytes bytes, std::u16string &path) {
    if (bytes.size() < 2 || bytes.size() % 2) return false;
    for (size_t i = 0; i < bytes.size(); i += 2)
        path.push_back(static_cast<zwchar>(bytes[i] | bytes[i + 1] << 8));
    const bool terminated = path.back() == 0;
    path.resize(std::u16string_view(path.c_str()).size());
    return terminated;
}

// The file that the table serves, without "./"; empty for a value that is no text. False, raised,
// where none is named.
bool read_reference(Table *table, std::u16string &path) {
    TableLookup lookup(table);
    if (!lookup.find(key_bytes(kReferenceKey))) return lookup.fail();
    if (!decode_reference(lookup.value(), path)) path.clear();
    if (path.starts_with(u"./")) path.erase(0, 2);
    return true;
}

const zwchar *without_dot(const zwchar *path) {
    return path[0] == '.' && path[1] == '/' ? path + 2 : path;
}

// Which of the keys, in their order, the table lacks. They are looked up in the table's order,
// where one step mostly leads to the next.
Owned<Vector, zVectorFree> missing_keys(Table *table, std::span<const DrawingKey> keys) {
    const auto below = [&](size_t a, size_t b) {
        return std::tie(keys[a].tag, keys[a].object) < std::tie(keys[b].tag, keys[b].object);
    };
    std::vector<size_t> order(keys.size());
    std::iota(order.begin(), order.end(), size_t{0});
    if (!std::ranges::is_sorted(order, below)) std::ranges::sort(order, below);

    std::vector<uint8_t> missing(keys.size());
    TableLookup lookup(table);
    for (size_t i : order) missing[i] = !lookup.find(key_bytes(keys[i]));
    auto list = new_keys(300);
    for (size_t i = 0; list && i < keys.size(); ++i)
        if (missing[i] && !zVectorPush(list.get(), &keys[i])) return nullptr;
    return list;
}

// Of a table without a server only what is there.
enum class Fetched { none, some, failed };
Fetched fetch_missing(Table *table, std::span<const DrawingKey> keys) {
    const auto missing = missing_keys(table, keys);
    if (!missing) return Fetched::failed;
    if (zVectorIsEmpty(missing.get())) return Fetched::none;
    return zTableCheckKeys(table, missing.get()) ? Fetched::some : Fetched::failed;
}

void append(std::vector<DrawingKey> &keys, const Vector *list) {
    const auto more = keys_of(list);
    keys.insert(keys.end(), more.begin(), more.end());
}

// Gives a drawing file whose table serves another path a table of its own.
class Confirmation {
  public:
    explicit Confirmation(const zwchar *path) : path_(path) {}
    void run() { open() && belongs_elsewhere() && is_complete() && copy() && rebind(); }

  private:
    bool open() {
        repository_.reset(zRepositoryDiscover(path_, nullptr));
        if (!repository_) return false;
        drawing_.reset(zDrawingRead(path_));
        if (!drawing_) return false;
        if (!has_table(repository_.get(), drawing_->table)) return warn();
        table_.reset(zTableByid(repository_.get(), &drawing_->table));
        const zwchar *workdir = table_ ? zRepositoryWorkdir(repository_.get()) : nullptr;
        return workdir && relative_to(relative_, path_, workdir);
    }

    // A drawing that was copied from another project: what it names is not here.
    bool warn() {
        raise_not_found(std::u16string(path_) + u": its table is not in this repository");
        log_raised(kWarning);
        return false;
    }

    // A table without a reference serves whoever names it.
    bool belongs_elsewhere() {
        std::u16string stored;
        return read_reference(table_.get(), stored) &&
               !zStrcasesameW(stored.c_str(), without_dot(relative_));
    }

    // A block that only the server has would be lost in a table that the server doesn't know.
    bool is_complete() {
        bool has_blocks = true;
        return complete_drawing(table_.get(), drawing_.get(), path_, &has_blocks) &&
               (has_blocks || !follows_server(repository_.get()));
    }

    std::vector<DrawingKey> keys() const {
        std::vector<DrawingKey> keys{kReferenceKey, drawing_->header, drawing_->summary,
                                     drawing_->ds};
        if (zDrawingHasVba(drawing_.get())) keys.push_back(drawing_->vba);
        append(keys, drawing_->classes.get());
        append(keys, drawing_->objects.get());
        return keys;
    }

    // The rows are on the disk before the drawing names their table.
    bool copy() {
        own_.reset(zTableRand(repository_.get()));
        if (!own_) return false;
        if (copy_rows() && zDrawingTableBackwardRefSet(own_.get(), nullptr, relative_)) return true;
        discard_table(std::move(own_));
        return false;
    }

    // A row that is not there is raised and stays behind. For one that can't be read the drawing
    // keeps its table: in another one the damage would pass for a row that nobody has.
    bool copy_rows() {
        TableBatch batch(own_.get());
        TableLookup lookup(table_.get());
        for (const DrawingKey &key : keys()) {
            const KeyBytes bytes = key_bytes(key);
            if (lookup.find(bytes)) {
                batch.put(bytes, lookup.value());
                continue;
            }
            const bool is_broken = lookup.is_broken();
            lookup.fail();
            if (is_broken) return false;
        }
        return batch.flush();
    }

    // A file that refuses the new table leaves nobody who names it. One that can't be read now may
    // name it.
    bool rebind() {
        drawing_->table = own_->id;
        if (zDrawingWrite(drawing_.get(), path_)) return true;
        Oid named;
        if (zDrawingDetect(&named, path_) && !zOidIsEqual(&named, &own_->id))
            discard_table(std::move(own_));
        return false;
    }

    const zwchar *path_;
    RepositoryPtr repository_; // outlives the tables
    DrawingPtr drawing_;
    TablePtr table_; // which the drawing names
    TablePtr own_;   // which it will name
    zwchar relative_[Z_PATH_MAX];
};

} // namespace

bool complete_drawing(Table *table, const Drawing *drawing, const zwchar *path, bool *has_blocks) {
    std::vector<DrawingKey> needed;
    append(needed, drawing->classes.get());
    append(needed, drawing->objects.get());
    std::vector<DrawingKey> listed{kReferenceKey};
    listed.insert(listed.end(), needed.begin(), needed.end());
    const Fetched fetched = fetch_missing(table, listed);
    if (fetched == Fetched::failed) return false;
    if (fetched == Fetched::some && !zVectorIsEmpty(missing_keys(table, needed).get()))
        return raise_not_found(path);
    std::vector<DrawingKey> blocks{drawing->header, drawing->summary, drawing->ds};
    if (zDrawingHasVba(drawing)) blocks.push_back(drawing->vba);
    const bool failed = fetch_missing(table, blocks) == Fetched::failed;
    if (has_blocks) *has_blocks = !failed;
    return true;
}

} // namespace zev

using namespace zev;

bool zDrawingTableBackwardRef(zwchar *path, Table *table) try {
    if (!path || !table) return fail_args();
    std::u16string stored;
    if (!read_reference(table, stored)) return false;
    if (stored.empty()) return raise_not_found();
    if (stored.size() >= Z_PATH_MAX) return fail_os(ENAMETOOLONG);
    path[stored.copy(path, stored.size())] = 0;
    return true;
} catch (...) {
    return fail_thrown();
}

bool zDrawingTableBackwardRefSet(Table *table, const zwchar *base, const zwchar *path) try {
    if (!table || !path) return fail_args();
    if (zStrlenW(path) >= Z_PATH_MAX) return fail_os(ENAMETOOLONG); // never cut
    zwchar stored[Z_PATH_MAX];
    if (!(base ? relative_to(stored, path, base) : zPathReplaceBackslash(stored, path)))
        return false;
    const std::vector<uint8_t> value = encode_reference(stored);
    return zDrawingKeyPutData(table, &kReferenceKey, value.data(), value.size());
} catch (...) {
    return fail_thrown();
}

void zDrawingConfirmTableBackwardRef(const zwchar *path) try {
    if (path)
        Confirmation(path).run();
    else
        fail_args();
} catch (...) {
    fail_thrown();
}

bool zDrawingDataPrepare(const zwchar *path, Drawing *drawing) try {
    if (!path || !drawing) return fail_args();
    const RepositoryPtr repository{zRepositoryDiscover(path, nullptr)};
    if (!repository) return false;
    const TablePtr table{zTableByid(repository.get(), &drawing->table)};
    return table && complete_drawing(table.get(), drawing, path);
} catch (...) {
    return fail_thrown();
}
