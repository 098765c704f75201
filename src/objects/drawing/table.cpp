// Drawing tables.
//
// <repository>/tables/<2 hex>/<38 hex>/    one LevelDB database per drawing
//   key 16: tag u64, object u64, big-endian; bytewise order puts negative objects last in a tag
//     all 00     backward reference: the drawing's path in UTF-16LE with its zero
//     all FF     the table's tag u64, big-endian; any other length than 8 reads as 1
//     object -1  header, -2 summary, -3 DS, -4 VBA project, -101-n class n, others the objects
//   LOCK.zlck    held without sharing while the table is open to be written, gone afterwards
// Closed, the directory holds CURRENT, one MANIFEST, and files of rows or a log of them: see
// table_tidy.cpp. Who only looks at rows (zTableLook) writes nothing there: the lock on the
// directory keeps writers away, and LevelDB is shown links to the files.
//
// The directory is that of the repository which all linked worktrees share; a table that a worktree
// has in its own Git directory, where they were kept once, is used there.
//
// Rows are not synced here: whoever lets a file or a reference name a row syncs before. The tag is:
// one that was handed out and forgotten would be handed out again, for other rows under the same
// keys.
#include "objects/drawing/table.hpp"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "common/limits.hpp"
#include "common/reader.hpp"
#include "common/told_errno.hpp"
#include "common/utf.hpp"
#include "objects/drawing/drawing.hpp"
#include "objects/store/repository.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"
#include "system/share.hpp"

#include "zev/dir.h"
#include "zev/oid.h"
#include "zev/path.h"
#include "zev/repository.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

namespace zev {

Failure fail_store(const char *text) { return raise_kvdb(text); }

namespace {

constexpr const zwchar *kEnd = nullptr; // of a list of path components
constexpr std::u16string_view kLockStem = u"LOCK";
constexpr zwchar kRemoved[] = u".removed"; // behind the name of a table that goes
constexpr int kLockRounds = 6;             // of half a second, for others who read or write
constexpr uint64_t kFirstTag = 1;
// A log that is longer is better made a file of rows for good than anew by each who looks.
constexpr off_t kShortLog = 1 << 20;
// "/tables/", two digits, a slash and 38 digits.
constexpr uint64_t kTablePathTail = 8 + 41;
constexpr uint64_t kUtf8PathMax = 512;
// What a batch adds to a pair at least; also tells a pair of nothing from no pair.
constexpr uint64_t kPairBytes = 3;
// Steps that cost less than a seek.
constexpr int kLookupSteps = 8;
// Keys in a row that make a list count as ordered; at random one list in 24 has four.
constexpr int kAscending = 4;

bool is_tag_key(const void *key, uint64_t length) {
    static constexpr KeyBytes tag_key = key_bytes(kTagKey);
    return length == tag_key.size() && !memcmp(key, tag_key.data(), tag_key.size());
}

bool table_below(zwchar *path, const zwchar *root, const Oid *id) {
    if (zStrlenW(root) + kTablePathTail >= Z_PATH_MAX) return fail_os(ENAMETOOLONG);
    return zPathBuild(path, root, u"tables", kEnd) && zOidPathAppend(path, id);
}

// By a worktree's Git directory, and the one that all worktrees share.
bool table_in(zwchar *path, const std::u16string &own, const std::u16string &shared,
              const Oid *id) {
    if (!table_below(path, own.c_str(), id)) return false;
    return own == shared || zPathExists(path) || table_below(path, shared.c_str(), id);
}

bool table_path(zwchar *path, Repository *repository, const Oid *id) {
    git_repository *git = repository->handle.get();
    return table_in(path, to_wide(git_repository_path(git)), to_wide(git_repository_commondir(git)),
                    id);
}

// The Git directory that is found from a directory upwards, below the ceilings, with a slash.
int find_git_directory(std::u16string &out, const std::string &start, const char *ceilings) {
    git_buf found = GIT_BUF_INIT;
    const Finally dispose([&] { git_buf_dispose(&found); });
    const int code = git_repository_discover(&found, start.c_str(), true, ceilings);
    if (code >= 0) out = to_wide(found.ptr);
    return code;
}

// That which belongs to a work directory, or is it; empty, raised, where there is none.
std::u16string git_directory(const zwchar *workdir) {
    const std::string start = git::path(workdir);
    std::filesystem::path own(start);
    if (!own.has_filename()) own = own.parent_path();
    std::u16string found;
    const int code = find_git_directory(found, start, own.parent_path().c_str());
    if (code < 0) fail_git(code);
    return found;
}

// What a linked worktree's file "commondir" names, from there; else `own` itself.
std::u16string shared_directory(const std::u16string &own) {
    char text[kUtf8PathMax + 1] = "";
    const Owned<FILE, fclose> file(os::open((own + u"commondir").c_str(), u"rb"));
    if (!file || !fgets(text, sizeof text, file.get())) return own;
    text[strcspn(text, "\r\n")] = 0;
    return to_wide((std::filesystem::path(to_utf8(own)) / text).lexically_normal().string());
}

// Whether two directories lie on one file system, as far as they can be looked at.
bool share_device(const zwchar *a, const zwchar *b) {
    struct stat of_a, of_b;
    return !os::stat(a, &of_a) || !os::stat(b, &of_b) || of_a.st_dev == of_b.st_dev;
}

// Files that hold rows. Where they stand without a CURRENT, LevelDB would begin anew, and delete
// them.
bool holds_rows(const zwchar *path) {
    std::vector<os::Name> names;
    if (!os::read_dir(path, &names)) return false;
    return std::ranges::any_of(names, [](const os::Name &name) {
        const std::u16string_view text = name.text;
        return text.ends_with(u".ldb") || text.ends_with(u".sst") || text.ends_with(u".log");
    });
}

// But for the lock that was taken.
bool holds_nothing(const zwchar *path) {
    std::vector<os::Name> names;
    if (!os::read_dir(path, &names)) return false;
    return std::ranges::all_of(names, [](const os::Name &name) {
        return name.text == u"." || name.text == u".." || name.text.starts_with(kLockStem);
    });
}

bool has_current(const zwchar *path) {
    zwchar current[Z_PATH_MAX];
    return zPathBuild(current, path, u"CURRENT", kEnd) && zPathFileExists(current);
}

// LevelDB makes one directory level only, and leaves files behind even where it may not create.
bool prepare_directory(const zwchar *path, const std::string &utf8, bool create) {
    if (has_current(path)) return true;
    if (holds_rows(path))
        return fail_store((utf8 + ": damaged, its file CURRENT is missing").c_str());
    if (create) return zDirMake(path, true);
    return fail_store((utf8 + ": does not exist (create_if_missing is false)").c_str());
}

// Nobody can write there: a read-only file system, an archive.
bool is_archive(const zwchar *path) {
    struct stat status;
    return os::stat(path, &status) && !os::writable(path);
}

bool open_database(Table *table, const std::string &utf8, bool create) {
    ldb::Options options{leveldb_options_create()};
    leveldb_options_set_create_if_missing(options.get(), create);
    ldb::Text error;
    table->database.reset(leveldb_open(options.get(), utf8.c_str(), out(error)));
    if (!table->database) return fail_store(error.get());
    table->reading.reset(leveldb_readoptions_create());
    table->walking.reset(leveldb_readoptions_create());
    for (leveldb_readoptions_t *way : {table->reading.get(), table->walking.get()})
        leveldb_readoptions_set_verify_checksums(way, 1);
    leveldb_readoptions_set_fill_cache(table->walking.get(), 0);
    table->writing.reset(leveldb_writeoptions_create());
    table->synced.reset(leveldb_writeoptions_create());
    leveldb_writeoptions_set_sync(table->synced.get(), 1);
    return true;
}

// Others of ours are waited for; LevelDB's own lock, beneath, refuses at once.
bool take_lock(Table *table) {
    const std::u16string name = std::u16string(kLockStem).append(kLockTail);
    zwchar path[Z_PATH_MAX];
    if (!zPathBuild(path, table->path.get(), name.c_str(), kEnd)) return false;
    for (int round = 0; round < kLockRounds && !table->lock; ++round) {
        table->lock.reset(zShareWait(path, kGuardMode, Z_SHARE_NONE));
        if (!table->lock && zErrorClass() != error_class::kLocked) break;
    }
    return table->lock != nullptr;
}

// What is there can be read; why no more than that is `refusal`.
bool open_image(Table *table, const zwchar *path, int refusal) {
    table->refusal = refusal;
    return table->image.make(path) && open_database(table, to_utf8(table->image.path()), false);
}

// A full device has no room for the manifest that an opening writes. The lock is kept meanwhile:
// what the image leads to stays as it is. Of a table that could not be begun nothing stays.
bool open_table(Table *table, const zwchar *path, const std::string &utf8, bool create) {
    if (is_archive(path)) return open_image(table, path, EROFS);
    if (!prepare_directory(path, utf8, create) || !take_lock(table) ||
        !table->gate.take(path, false))
        return false;
    const bool is_new = create && holds_nothing(path); // now that it is ours
    if (open_database(table, utf8, create)) return true;
    if (!is_new) return raised_no_space() && has_current(path) && open_image(table, path, ENOSPC);
    const KeptFailure kept;
    os::remove_tree(path, false);
    return false;
}

bool has_long_log(const zwchar *path) {
    std::vector<os::Name> names;
    if (!os::read_dir(path, &names)) return false;
    return std::ranges::any_of(names, [path](const os::Name &name) {
        struct stat status;
        return name.text.ends_with(u".log") &&
               os::stat((std::u16string(path) + u'/' + name.text).c_str(), &status) &&
               status.st_size > kShortLog;
    });
}

// Fails only while somebody writes there. Else what can't be looked at so, for want of such locks
// or of a place for links, is left as it was: `table` has no database then, and nothing is raised.
bool open_to_look(Table *table, const zwchar *path) {
    if (is_archive(path) || !has_current(path) || has_long_log(path)) return true;
    if (!table->gate.take(path, true)) return false;
    const KeptFailure kept;
    if (table->gate.is_taken() && !open_image(table, path, EACCES)) table->database.reset();
    return true;
}

bool put_row(Table *table, const void *key, uint64_t key_length, const void *value,
             uint64_t value_length, bool is_synced) {
    if (!check_writable(table)) return false;
    if (is_tag_key(key, key_length)) table->tag.reset();
    ldb::Text error;
    leveldb_put(table->database.get(), (is_synced ? table->synced : table->writing).get(),
                ldb::chars(key), key_length, ldb::chars(value ? value : ""), value_length,
                out(error));
    return error ? fail_store(error.get()) : true;
}

// A value on the C heap; null where the key is missing (no error) or the store failed.
ldb::Text get_value(Table *table, const void *key, uint64_t key_length, size_t &length,
                    ldb::Text &error) {
    return ldb::Text{leveldb_get(table->database.get(), table->reading.get(), ldb::chars(key),
                                 key_length, &length, out(error))};
}

Table *owned_by(Repository *repository, const Oid *id, TablePtr table) {
    if (!table) return nullptr;
    table->owner = repository;
    table->id = *id;
    return table.release();
}

Table *open_in(Repository *repository, const Oid *id, const zwchar *path) {
    return owned_by(repository, id, TablePtr(zTableOpen(path, true)));
}

bool valid(const TableIter *iter) {
    return iter && iter->handle && leveldb_iter_valid(iter->handle.get());
}

} // namespace

bool check_writable(const Table *table) {
    return table->image ? fail_os(table->refusal, table->path.get()) : true;
}

bool has_table(Repository *repository, const Oid &id) {
    zwchar path[Z_PATH_MAX];
    return table_path(path, repository, &id) && zPathExists(path);
}

bool read_tag(Table *table, uint64_t &tag) {
    if (!table->tag) {
        static constexpr KeyBytes key = key_bytes(kTagKey);
        size_t length = 0;
        ldb::Text error;
        ldb::Text value = get_value(table, key.data(), key.size(), length, error);
        if (error) return fail_store(error.get());
        bool stored = value && length == sizeof(uint64_t);
        table->tag = stored ? load_u64(reinterpret_cast<uint8_t *>(value.get())) : kFirstTag;
    }
    tag = *table->tag;
    return true;
}

bool sync_rows(const zwchar *directory, const Oid &table) {
    if (!os::sync_tree(directory)) return fail_errno(directory);
    std::u16string own; // without a repository nobody knows where they are
    if (find_git_directory(own, git::path(directory), nullptr) < 0) return git_error_clear(), true;
    zwchar place[Z_PATH_MAX];
    if (!table_in(place, own, shared_directory(own), &table) || share_device(directory, place))
        return true;
    return os::sync_tree(place) || fail_errno(place);
}

void discard_table(TablePtr table) {
    const Wide path = std::move(table->path);
    table.reset();
    os::remove_tree(path.get(), false);
}

bool TableBatch::put(Bytes key, Bytes value) {
    leveldb_writebatch_put(batch_.get(), ldb::chars(key.data()), key.size(),
                           ldb::chars(value.data()), value.size());
    held_ += key.size() + value.size() + kPairBytes;
    return held_ < limits::batch_bytes || flush();
}

bool TableBatch::flush() {
    if (!held_) return ok_;
    held_ = 0;
    if (!check_writable(table_)) return ok_ = false;
    table_->tag.reset(); // the batch may hold another one
    ldb::Text error;
    leveldb_write(table_->database.get(), table_->writing.get(), batch_.get(), out(error));
    leveldb_writebatch_clear(batch_.get());
    if (!error) return ok_;
    ok_ = false;
    return fail_store(error.get());
}

TableLookup::TableLookup(Table *table)
    : table_(table), iter_(leveldb_create_iterator(table->database.get(), table->reading.get())),
      ascending_(kAscending) {}

int TableLookup::compare(const KeyBytes &key) const {
    size_t length = 0;
    const char *here = leveldb_iter_key(iter_.get(), &length);
    int order = memcmp(here, key.data(), std::min(length, key.size()));
    return order ? order : (length > key.size()) - (length < key.size());
}

// Steps to the first key not below the one asked for; false if that seems far away.
bool TableLookup::step(const KeyBytes &key) {
    if (!standing_ || key < placed_) return false;
    for (int steps = 0; steps <= kLookupSteps; ++steps) {
        if (!leveldb_iter_valid(iter_.get()) || compare(key) >= 0) return true;
        leveldb_iter_next(iter_.get());
    }
    return false;
}

bool TableLookup::get(const KeyBytes &key) {
    got_ = get_value(table_, key.data(), key.size(), got_length_, error_);
    return got_ != nullptr;
}

// A block that can't be read is passed over by the iterator, so that it would stand at an older
// value of the same key, which compaction has not dropped yet: from then on each key is a get,
// which says so.
bool TableLookup::find(const KeyBytes &key) {
    ascending_ = key < asked_ ? 0 : ascending_ + 1;
    asked_ = key;
    stepped_ = ascending_ >= kAscending && !passes_over_;
    if (!stepped_) return get(key);
    if (!step(key)) leveldb_iter_seek(iter_.get(), ldb::chars(key.data()), key.size());
    standing_ = true;
    placed_ = key;
    leveldb_iter_get_error(iter_.get(), out(error_));
    if (error_) {
        passes_over_ = true;
        stepped_ = false;
        return get(key);
    }
    return leveldb_iter_valid(iter_.get()) && compare(key) == 0;
}

Bytes TableLookup::value() const {
    size_t length = got_length_;
    const char *data = stepped_ ? leveldb_iter_value(iter_.get(), &length) : got_.get();
    return {reinterpret_cast<const uint8_t *>(data), length};
}

bool TableLookup::is_broken() const { return error_ != nullptr; }

Failure TableLookup::fail() const { return fail_store(error_.get()); }

} // namespace zev

using namespace zev;

Table *zTableOpen(const zwchar *path, bool create) try {
    if (!path || !*path) return fail_args();
    const std::string utf8 = to_utf8(path);
    const uint64_t lock_tail = 1 + kLockStem.size() + kLockTail.size(); // with a slash
    if (zStrlenW(path) + lock_tail >= Z_PATH_MAX || utf8.size() >= kUtf8PathMax)
        return fail_os(ENAMETOOLONG);
    TablePtr table{new Table};
    table->path.reset(zStrdupW(path));
    if (!table->path) return nullptr;
    return open_table(table.get(), path, utf8, create) ? table.release() : nullptr;
} catch (...) {
    return fail_thrown();
}

Table *zTableRand(Repository *repository) try {
    if (!repository) return fail_args();
    Oid id;
    zwchar path[Z_PATH_MAX];
    do {
        if (!zOidRand(&id) || !table_path(path, repository, &id)) return nullptr;
    } while (zPathExists(path));
    return open_in(repository, &id, path);
} catch (...) {
    return fail_thrown();
}

Table *zTableByid(Repository *repository, const Oid *id) try {
    if (!repository || !id) return fail_args();
    zwchar path[Z_PATH_MAX];
    if (!table_path(path, repository, id)) return nullptr;
    return open_in(repository, id, path);
} catch (...) {
    return fail_thrown();
}

Table *zTableLook(Repository *repository, const Oid *id) try {
    if (!repository || !id) return fail_args();
    zwchar path[Z_PATH_MAX];
    if (!table_path(path, repository, id)) return nullptr;
    TablePtr table{new Table};
    table->path.reset(zStrdupW(path));
    if (!table->path || !open_to_look(table.get(), path)) return nullptr;
    if (!table->database) {
        table.reset(); // lets go of the gate
        table.reset(zTableOpen(path, false));
    }
    return owned_by(repository, id, std::move(table));
} catch (...) {
    return fail_thrown();
}

bool zTablePlace(zwchar *path, Repository *repository, const Oid *id) try {
    if (!path || !repository || !id) return fail_args();
    return table_path(path, repository, id);
} catch (...) {
    return fail_thrown();
}

bool zTablePlaceIn(zwchar *path, const zwchar *workdir, const Oid *id) try {
    if (!path || !workdir || !id) return fail_args();
    const std::u16string own = git_directory(workdir);
    return !own.empty() && table_in(path, own, shared_directory(own), id);
} catch (...) {
    return fail_thrown();
}

Table *zTableDiscover(const zwchar *start, const zwchar *ceilings, const Oid *id) {
    if (!start || !id) return fail_args();
    Owned<Repository, zRepositoryFree> repository{zRepositoryDiscover(start, ceilings)};
    if (!repository) return nullptr;
    Table *table = zTableByid(repository.get(), id);
    if (table) table->owner = nullptr;
    return table;
}

// One that could not be opened keeps all that may tell why.
Table::~Table() {
    if (!database) return;
    database.reset();
    if (!image) tidy_table(path.get());
}

void zTableFree(Table *table) { delete table; }

const Oid *zTableId(const Table *table) {
    if (!table) return fail_args();
    return &table->id;
}

Repository *zTableOwner(const Table *table) {
    if (!table) return fail_args();
    return table->owner;
}

const zwchar *zTablePath(const Table *table) {
    if (!table) return fail_args();
    return table->path.get();
}

bool zTableGet(void **value, uint64_t *length, Table *table, const void *key, uint64_t key_length) {
    if (!value || !length || !table || !key) return fail_args();
    size_t size = 0;
    ldb::Text error;
    ldb::Text found = get_value(table, key, key_length, size, error);
    if (!found) return fail_store(error.get());
    *value = found.release();
    *length = size;
    return true;
}

bool zTablePut(Table *table, const void *key, uint64_t key_length, const void *value,
               uint64_t value_length) {
    if (!table || !key || (!value && value_length)) return fail_args();
    return put_row(table, key, key_length, value, value_length, false);
}

bool zTableDel(Table *table, const void *key, uint64_t key_length) {
    if (!table || !key) return fail_args();
    if (!check_writable(table)) return false;
    if (is_tag_key(key, key_length)) table->tag.reset();
    ldb::Text dropped; // a row that could not be deleted does no harm
    leveldb_delete(table->database.get(), table->writing.get(), ldb::chars(key), key_length,
                   out(dropped));
    return true;
}

uint64_t zTableTagGet(Table *table) {
    uint64_t tag = kFirstTag;
    if (!table) return fail_args(), kFirstTag;
    return read_tag(table, tag) ? tag : kFirstTag;
}

bool zTableTagSet(Table *table, uint64_t value) {
    if (!table) return fail_args();
    uint8_t bytes[sizeof value];
    store_u64(bytes, value);
    static constexpr KeyBytes key = key_bytes(kTagKey);
    return put_row(table, key.data(), key.size(), bytes, sizeof bytes, true);
}

// A tag that can't be read is not taken for 1 here: going back would let old rows be overwritten.
bool zTableTagIncrement(Table *table) {
    if (!table) return fail_args();
    uint64_t tag = 0;
    return read_tag(table, tag) && zTableTagSet(table, tag + 1);
}

namespace {

// Every row is read, with its sum: what is compacted gets a new one, and damage would never show
// again.
bool is_sound(Table *table) {
    const ldb::Iterator rows{leveldb_create_iterator(table->database.get(), table->walking.get())};
    leveldb_iter_seek_to_first(rows.get());
    while (leveldb_iter_valid(rows.get())) leveldb_iter_next(rows.get());
    ldb::Text error;
    leveldb_iter_get_error(rows.get(), out(error));
    return error ? fail_store(error.get()) : true;
}

} // namespace

bool zTableCompact(Table *table) {
    if (!table) return fail_args();
    if (!check_writable(table)) return false;
    if (!is_sound(table)) return false;
    leveldb_compact_range(table->database.get(), nullptr, 0, nullptr, 0);
    return true;
}

// It loses its name at one stroke: half a table would be taken for a damaged one. Whoever waits for
// it makes it anew.
bool zTableRemove(Table *table) try {
    if (!table) return fail_args();
    TablePtr held(table);
    if (!check_writable(table)) return false;
    held->database.reset();
    const std::u16string path = held->path.get(), aside = path + kRemoved;
    os::remove_tree(aside.c_str(), false);
    if (!os::move(path.c_str(), aside.c_str(), false)) return fail_errno(path.c_str());
    held.reset();
    os::remove_tree(aside.c_str(), false);
    os::remove_dir(path.substr(0, path.rfind(u'/')).c_str()); // of others too, if that was all
    return true;
} catch (...) {
    return fail_thrown();
}

TableIter *zTableIterNew(Table *table) try {
    if (!table) return fail_args();
    ldb::Iterator handle{leveldb_create_iterator(table->database.get(), table->walking.get())};
    if (!handle) return fail_store(nullptr);
    return new TableIter{std::move(handle)};
} catch (...) {
    return fail_thrown();
}

void zTableIterFree(TableIter *iter) { delete iter; }

bool zTableIterDone(const TableIter *iter) { return !valid(iter); }

bool zTableIterSeekToFirst(TableIter *iter) {
    if (!iter) return fail_args();
    leveldb_iter_seek_to_first(iter->handle.get());
    return true;
}

bool zTableIterSeekToLast(TableIter *iter) {
    if (!iter) return fail_args();
    leveldb_iter_seek_to_last(iter->handle.get());
    return true;
}

bool zTableIterNext(TableIter *iter) {
    if (!valid(iter)) return fail_args();
    leveldb_iter_next(iter->handle.get());
    return true;
}

bool zTableIterPrev(TableIter *iter) {
    if (!valid(iter)) return fail_args();
    leveldb_iter_prev(iter->handle.get());
    return true;
}

bool zTableIterSeek(TableIter *iter, const void *key, uint64_t key_length) {
    if (!iter || !key) return fail_args();
    leveldb_iter_seek(iter->handle.get(), ldb::chars(key), key_length);
    return true;
}

bool zTableIterKey(const void **key, uint64_t *length, const TableIter *iter) {
    if (!key || !length || !valid(iter)) return fail_args();
    size_t size = 0;
    *key = leveldb_iter_key(iter->handle.get(), &size);
    *length = size;
    return true;
}

bool zTableIterValue(const void **value, uint64_t *length, const TableIter *iter) {
    if (!value || !length || !valid(iter)) return fail_args();
    size_t size = 0;
    *value = leveldb_iter_value(iter->handle.get(), &size);
    *length = size;
    return true;
}
