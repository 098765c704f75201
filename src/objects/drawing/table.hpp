// The table record, for the families of the drawing store; guards over LevelDB's handles; and the
// two ways to move many pairs: puts in batches, look-ups by one iterator.
#pragma once

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/share.h"
#include "zev/table.h"

#include <array>
#include <functional>
#include <leveldb/c.h>
#include <optional>
#include <span>

namespace zev::ldb {

using Batch = Owned<leveldb_writebatch_t, leveldb_writebatch_destroy>;
using Database = Owned<leveldb_t, leveldb_close>;
using Iterator = Owned<leveldb_iterator_t, leveldb_iter_destroy>;
using Options = Owned<leveldb_options_t, leveldb_options_destroy>;
using ReadOptions = Owned<leveldb_readoptions_t, leveldb_readoptions_destroy>;
using Text = Owned<char, leveldb_free>; // an error's text, or a value
using WriteOptions = Owned<leveldb_writeoptions_t, leveldb_writeoptions_destroy>;

// LevelDB takes bytes as char.
inline const char *chars(const void *bytes) { return static_cast<const char *>(bytes); }

} // namespace zev::ldb

namespace zev {

// LevelDB writes whenever it opens: a new manifest, a log, a lock. Where nobody may write, there is
// no room, or somebody only looks, it is shown a directory of links to the table's files, which
// goes with the record.
class TableImage {
  public:
    TableImage() = default;
    ~TableImage();
    TableImage(const TableImage &) = delete;
    TableImage &operator=(const TableImage &) = delete;

    explicit operator bool() const { return !path_.empty(); }
    bool make(const zwchar *table);
    const std::u16string &path() const { return path_; }

  private:
    std::u16string path_;
};

// The lock on a table's directory itself, for which nothing is written there: who only looks at
// rows shares it with others who look, who may write has it alone.
class TableGate {
  public:
    TableGate() = default;
    ~TableGate();
    TableGate(const TableGate &) = delete;
    TableGate &operator=(const TableGate &) = delete;

    // Waits for others, up to three seconds: then false, and the locked error. True also where
    // directories can't be locked.
    bool take(const zwchar *table, bool shared);
    bool is_taken() const { return directory_ >= 0; }

  private:
    int directory_ = -1;
};

// Takes away what a closed database leaves in its directory and nobody needs: see the source.
void tidy_table(const zwchar *directory);

} // namespace zev

struct Table {
    Table() = default;
    ~Table();
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    Repository *owner = nullptr; // lent; null unless opened through a repository
    Oid id{};                    // all zero after a direct open
    zev::Wide path;
    zev::TableGate gate;
    zev::TableImage image;               // of a table that is only read
    int refusal = 0;                     // what a write to that ends with, a number of the host's
    zev::Owned<Share, zShareClose> lock; // above the database: let go once that is closed
    zev::ldb::Database database;
    zev::ldb::ReadOptions reading; // checksums verified
    zev::ldb::ReadOptions walking; // the same; what comes by once is not kept in memory
    zev::ldb::WriteOptions writing, synced;
    std::optional<uint64_t> tag; // as stored, once read; nobody else writes while we hold the lock
};

struct TableIter {
    zev::ldb::Iterator handle;
};

namespace zev {

using TablePtr = Owned<Table, zTableFree>;
using Bytes = std::span<const uint8_t>;
using KeyBytes = std::array<uint8_t, 16>; // a DrawingKey on disk and on the wire

// Reserved keys: the first and the last of every table.
inline constexpr DrawingKey kReferenceKey{0, 0};
inline constexpr DrawingKey kTagKey{UINT64_MAX, UINT64_MAX};

Failure fail_store(const char *text); // class 13 with LevelDB's text, which may be null

// False, with the reason raised, for a table that is only read.
bool check_writable(const Table *table);
bool has_table(Repository *repository, const Oid &id);

// The tag; unlike zTableTagGet false, raised, where it can't be read.
bool read_tag(Table *table, uint64_t &tag);

// What was written below a directory is on the disk, and so are the rows of a table of the
// repository around it, wherever they lie. May throw.
bool sync_rows(const zwchar *directory, const Oid &table);

// Closes a table that was just made and takes it away again.
void discard_table(TablePtr table);

// Stores pairs in batches of limits::batch_bytes, in the order of the puts. A batch that fails
// raises the store error; the next one is tried all the same.
class TableBatch {
  public:
    explicit TableBatch(Table *table) : table_(table), batch_(leveldb_writebatch_create()) {}
    bool put(Bytes key, Bytes value);
    bool flush();                   // stores what is still held back
    bool ok() const { return ok_; } // no batch has failed

  private:
    Table *table_;
    ldb::Batch batch_;
    uint64_t held_ = 0;
    bool ok_ = true;
};

// Finds values. While keys come in ascending order they are reached by stepping one iterator,
// which costs a fraction of a get; others cost a get each.
class TableLookup {
  public:
    explicit TableLookup(Table *table);
    bool find(const KeyBytes &key);
    Bytes value() const;    // of the key found, lent until the next find
    Failure fail() const;   // raises why the last key was not found
    bool is_broken() const; // it was not: the store could not be read. May be there, then

  private:
    bool step(const KeyBytes &key);
    bool get(const KeyBytes &key);
    int compare(const KeyBytes &key) const; // where the iterator stands, against key

    Table *table_;
    ldb::Iterator iter_;
    KeyBytes asked_{};  // last
    KeyBytes placed_{}; // the iterator stands at the first key not below this one
    bool standing_ = false;
    int ascending_;            // keys in a row
    bool stepped_ = false;     // the last key was looked for by the iterator, not by a get
    bool passes_over_ = false; // what it can't read, as it has met some
    ldb::Text got_;
    size_t got_length_ = 0;
    ldb::Text error_;
};

// Hands over each pair of a pair stream, up to its end mark or a break. False at a pair beyond the
// limits, of which nothing is read.
struct PairLimits {
    uint64_t key = UINT32_MAX, value = UINT32_MAX;
};
bool read_pairs(Stream *stream, const std::function<void(Bytes key, Bytes value)> &pair,
                PairLimits limits = {});

// As zTablePartialWriteOut, which see. A row that can't be read is left out like one that is
// absent; who must not take it for that asks for `is_damaged`, which is set then. May throw.
Stream *write_rows(Table *table, const Vector *keys, bool &is_damaged);

} // namespace zev
