// Drawing tables: made or opened, rows taken in, rows given out.
//
// Clients draw the tags of their rows by chance, up to 2^40 beyond the one that they were given.
// What holds: a table's tag lies above that of every row that was sent here, never falls, and none
// is given to two clients; it is on the disk, with the rows, before the answer leaves. A table is
// open for one request only.
#include "common/limits.hpp"
#include "common/reader.hpp"
#include "network/http/server.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/repos/content.hpp"
#include "network/rest/repos/paths_of.hpp"
#include "objects/drawing/drawing.hpp"
#include "system/os.hpp"
#include "zev/oid.h"
#include "zev/path.h"
#include "zev/stream.h"
#include "zev/table.h"

#include <algorithm>
#include <cerrno>

namespace zev::rest {

namespace {

using KeysPtr = Owned<Vector, zVectorFree>;

// Tags travel as signed numbers.
constexpr uint64_t kLastTag = INT64_MAX;
constexpr uint64_t kHighestSent = uint64_t{1} << 61; // clients take tags of twice that, at most

bool sync_table(const Table *table) {
    return os::sync_tree(table->path.get()) || fail_os(errno, table->path.get());
}

HttpResponse *answer_table(const Call &call, Table *table) {
    const std::u16string text = id_text(table->id);
    Tree record = with_id(project_record(call, u"table", {u"tables", text.c_str()}), table->id);
    Tree tag(zJsonNewInt(static_cast<int64_t>(zTableTagGet(table))));
    if (!record || !tag || !zJsonObjectPut(record.get(), u"tag", tag.get())) return nullptr;
    static_cast<void>(tag.release());
    return answer_data(201, std::move(record));
}

// ---- Storing

// The rows of one request. Up to a bound they are one batch, and are there together or not at all.
class RowIntake {
  public:
    explicit RowIntake(Table *table) : table_(table), batch_(leveldb_writebatch_create()) {}

    void take(Bytes key, Bytes value) {
        if (!ok_ || raise_top(key, value) || !is_sound())
            return; // the table's own tag is put with the last
        leveldb_writebatch_put(batch_.get(), ldb::chars(key.data()), key.size(),
                               ldb::chars(value.data()), value.size());
        held_ += key.size() + value.size();
        if (held_ >= limits::sent_batch_bytes) ok_ = write(false) && ok_;
    }
    // No row has a tag beyond which there would soon be none left: a tag never falls.
    bool is_sound() const { return top_ < kHighestSent; }

    // One sync, whatever there was.
    bool finish(bool is_new) {
        const bool is_one = !is_new && !writes_;
        return ok_ && write(is_one) && (is_one || sync_table(table_));
    }

  private:
    // True for the row of the tag.
    bool raise_top(Bytes key, Bytes value) {
        static constexpr KeyBytes tag_key = key_bytes(kTagKey);
        const bool is_tag = std::ranges::equal(key, tag_key);
        if (is_tag && value.size() == sizeof top_)
            top_ = std::max(top_, load_u64(value.data()));
        else if (!is_tag && key.size() == tag_key.size())
            top_ = std::max(top_, load_u64(key.data()));
        return is_tag;
    }

    // A tag above all rows goes with each batch, so that none is ever there without it.
    bool put_tag() {
        if (!writes_ && !read_tag(table_, first_)) return false;
        ++writes_;
        if (first_ >= kLastTag) return raise_range();
        uint8_t bytes[sizeof first_];
        store_u64(bytes, std::max(first_, top_) + 1);
        static constexpr KeyBytes key = key_bytes(kTagKey);
        leveldb_writebatch_put(batch_.get(), ldb::chars(key.data()), key.size(), ldb::chars(bytes),
                               sizeof bytes);
        table_->tag.reset();
        return true;
    }

    bool write(bool is_synced) {
        if (!put_tag()) return false;
        ldb::Text error;
        leveldb_write(table_->database.get(), (is_synced ? table_->synced : table_->writing).get(),
                      batch_.get(), out(error));
        leveldb_writebatch_clear(batch_.get());
        held_ = 0;
        return error ? fail_store(error.get()) : true;
    }

    Table *table_;
    ldb::Batch batch_;
    uint64_t held_ = 0;
    uint64_t first_ = 0, top_ = 0; // the table's tag before, the highest that came
    int writes_ = 0;
    bool ok_ = true;
};

// ---- What storing and reading begin with

struct Opened {
    Oid id;
    bool is_new;
    TablePtr table;
};

// What is missing is made, so there is no such table only where something else lies in its place.
HttpResponse *refuse_table(const Call &call, bool reads, const Oid &id, Here at = {}) {
    log_raised(kError, at, kFacilitySrv);
    zwchar path[Z_PATH_MAX];
    struct stat status;
    const zwchar *text = capture(call, u":other");
    const bool joined = zPathBuild(path, zRepositoryPath(call.repository.get()), u"tables",
                                   static_cast<const zwchar *>(nullptr)) &&
                        zOidPathAppend(path, &id);
    if (!joined || (os::stat(path, &status) && !S_ISDIR(status.st_mode)))
        return refuse(call, 404, u"srv.eNoSuchTable_s", text, at);
    return refuse(call, 500, reads ? u"srv.eReadTable_s" : u"srv.eUpdateTable_s", text, at);
}

// A table that may not be read is not opened either.
HttpResponse *open_named(Call &call, bool reads, Opened &opened) {
    if (HttpResponse *refusal = need_id(call, &opened.id)) return refusal;
    if (HttpResponse *refusal = open_project(call)) return refusal;
    if (HttpResponse *refusal = reads ? admit_table(call, opened.id) : admit_rows(call, opened.id))
        return refusal;
    opened.is_new = !has_table(call.repository.get(), opened.id);
    opened.table.reset(zTableByid(call.repository.get(), &opened.id));
    return opened.table ? need_octets(call) : refuse_table(call, reads, opened.id);
}

} // namespace

HttpResponse *open_table(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    Tree body;
    if (HttpResponse *refusal = read_json(call, body)) return refusal;
    Oid id;
    Json *text = zJsonPathGet(body.get(), u"query.id");
    if (!text || !zJsonIsString(text) || !parse_id(&id, zJsonGetString(text)))
        return refuse(call, 400, u"srv.eFieldInvalid_s", u"id");
    const bool is_new = !has_table(call.repository.get(), id);
    const TablePtr table(zTableByid(call.repository.get(), &id));
    if (!table || (is_new && !sync_table(table.get())))
        return refuse(call, 500, u"srv.eCreateTable");
    return answer_table(call, table.get());
}

HttpResponse *store_rows(Call &call) {
    Opened opened;
    if (HttpResponse *refusal = open_named(call, false, opened)) return refusal;
    Table *table = opened.table.get();
    if (!check_writable(table))
        return refuse(call, 500, u"srv.eUpdateTable_s", capture(call, u":other"));
    RowIntake intake(table);
    const HttpLimits &told = call.server->limits;
    const bool fits = read_pairs(zHttpRequestBody(call.request),
                                 [&](Bytes key, Bytes value) { intake.take(key, value); },
                                 {told.row_key, told.row_value});
    if (!fits) return refuse(call, 413);
    if (!intake.is_sound()) return refuse(call, 400, u"srv.eInvalidContent");
    if (!intake.finish(opened.is_new))
        return refuse(call, 500, u"srv.eUpdateTable_s", capture(call, u":other"));
    return answer_table(call, table);
}

HttpResponse *read_rows(Call &call) {
    Opened opened;
    if (HttpResponse *refusal = open_named(call, true, opened)) return refusal;
    Table *table = opened.table.get();
    const KeysPtr keys(zDrawingKeyVectorRead(zHttpRequestBody(call.request)));
    if (!keys) return refuse(call, 400, u"srv.eUnresolvableContent");
    bool is_damaged = false; // a row that its reader would take for one that nobody has
    const bool raised = zTableTagIncrement(table);
    Owned<Stream, zStreamFree> rows(raised ? write_rows(table, keys.get(), is_damaged) : nullptr);
    if (is_damaged) log_raised(kError, {}, kFacilitySrv);
    if (!rows || is_damaged)
        return refuse(call, 500, u"srv.eReadTable_s", capture(call, u":other"));
    return zHttpResponseOctet(200, rows.release());
}

} // namespace zev::rest
