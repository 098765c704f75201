// A drawing goes up in two pieces: its rows go into the server's table, then the manifest that
// names them goes to the objects, so that no manifest there names a row that is not. Nothing is
// ever taken out of a table.
#include "remote/push_drawings.hpp"

#include "common/reader.hpp"
#include "objects/drawing/drawing.hpp"
#include "objects/store/odb.hpp"
#include "stream/stream.hpp"
#include "zev/drawing.h"
#include "zev/odb.h"
#include "zev/status.h"
#include "zev/table.h"

namespace zev {

namespace {

using IterPtr = Owned<TableIter, zTableIterFree>;
using VectorPtr = Owned<Vector, zVectorFree>;
using Keys = std::span<const KeyBytes>;

constexpr uint64_t kBatch = 0x200000; // bytes of pairs after which a request is sent
constexpr uint64_t kReserved = 1000;  // keys

// Larger than any manifest. What is not here is not.
bool is_too_large(Repository *repository, const Oid &blob) {
    const OdbPtr odb(zOdbOpen(repository));
    return odb && zOdbSize(odb.get(), &blob) > limits::object_form;
}

// A file as it was committed: that of the work directory may be another by now. Null, raised, where
// it is not here or can't be read.
StreamPtr content(Repository *repository, const Oid &blob) {
    const OdbPtr odb(zOdbOpen(repository));
    if (!odb) return {};
    if (!zOdbExists(odb.get(), &blob)) return raise_not_found(id_text(blob)), StreamPtr();
    StreamPtr stream(spill_stream());
    const bool read = stream && zOdbRead(odb.get(), &blob, stream.get());
    return read && zStreamRewind(stream.get()) ? std::move(stream) : StreamPtr();
}

// A larger one than any is none.
StreamPtr manifest(Repository *repository, const Oid &blob) {
    return is_too_large(repository, blob) ? (raise_range(), StreamPtr())
                                          : content(repository, blob);
}

// ---- Rows

bool write_pair(Stream *stream, const KeyBytes &key, Bytes value) {
    return zStreamWrUInt32(stream, static_cast<uint32_t>(key.size())) &&
           zStreamWrite(stream, key.data(), key.size()) == key.size() &&
           zStreamWrUInt32(stream, static_cast<uint32_t>(value.size())) &&
           zStreamWrite(stream, value.data(), value.size()) == value.size();
}

// Pairs from a place on, which moves behind the last one. A row that the table lacks is left out,
// one that can't be read is not: the manifest behind it would name a row that nobody has.
StreamPtr next_batch(TableLookup &lookup, Keys keys, size_t &at) {
    StreamPtr stream(spill_stream());
    bool ok = stream != nullptr;
    for (uint64_t size = 0; ok && at < keys.size() && size < kBatch; ++at) {
        if (!lookup.find(keys[at])) {
            const bool is_broken = lookup.is_broken();
            lookup.fail();
            if (is_broken) return nullptr;
            continue;
        }
        const Bytes value = lookup.value();
        ok = value.size() <= INT32_MAX && write_pair(stream.get(), keys[at], value);
        size += keys[at].size() + value.size() + 2 * sizeof(uint32_t);
    }
    ok = ok && zStreamWrUInt32(stream.get(), 0);
    return ok ? std::move(stream) : StreamPtr();
}

// The server raises its tag with what it takes in. Ours never falls.
bool take_tag(Table *table, HttpResponse *response) {
    Stream *body = zHttpResponseBody(response);
    JsonBounds bounds{limits::http_json, limits::http_nodes};
    const JsonGuard answer(body ? json_read_bounded(body, bounds) : nullptr);
    const Json *tag = answer ? json_find(answer.get(), u"data.tag") : nullptr;
    const int64_t value = tag ? zJsonGetInt(tag) : 0;
    uint64_t own = 0;
    const auto told = static_cast<uint64_t>(value);
    if (value <= 0 || told > kHighestTag) return true;
    return read_tag(table, own) && (own >= told || zTableTagSet(table, told));
}

bool send_rows(Push &push, Table *table, Keys keys) {
    const RemoteCall call{push.remote, nullptr, u"odb.eFailedToPushDrawings",
                          u"net.eFailedToCreatePushRequest"};
    TableLookup lookup(table);
    for (size_t at = 0; at < keys.size();) {
        StreamPtr batch = next_batch(lookup, keys, at);
        HttpRequest *request =
            batch ? make_request(call, Z_HTTP_PUT, u"/tables/" + id_text(table->id)) : nullptr;
        if (!request || !zHttpRequestSetNotify(request, push.notify) ||
            !zHttpRequestSetOctet(request, batch.release()))
            return false;
        HttpResponse *response = send(call, request);
        if (!response || !take_tag(table, response)) return false;
    }
    return true;
}

// ---- Which rows

TablePtr table_of(Push &push, Stream *drawing) {
    Oid id;
    if (!zDrawingDetectStream(&id, drawing)) return raise_args(), TablePtr();
    if (!has_table(push.remote->owner, id)) return raise_not_found(id_text(id)), TablePtr();
    return TablePtr(zTableByid(push.remote->owner, &id));
}

bool send_whole(Push &push, Stream *drawing) {
    const TablePtr table = table_of(push, drawing);
    const IterPtr iter(table ? zTableIterNew(table.get()) : nullptr);
    if (!iter) return false;
    std::vector<KeyBytes> keys;
    keys.reserve(kReserved);
    for (zTableIterSeekToFirst(iter.get()); !zTableIterDone(iter.get());
         zTableIterNext(iter.get())) {
        const void *key;
        uint64_t length;
        if (!zTableIterKey(&key, &length, iter.get())) return false;
        if (length == sizeof(KeyBytes)) memcpy(&keys.emplace_back(), key, length);
    }
    ldb::Text damage; // a table with a hole must not pass for the whole one
    leveldb_iter_get_error(iter->handle.get(), out(damage));
    if (damage) return fail_store(damage.get());
    return send_rows(push, table.get(), keys);
}

bool send_increments(Push &push, Stream *before, Stream *after) {
    VectorPtr keys;
    const bool compared = zDrawingIncrements(before, after, out(keys));
    const TablePtr table = compared ? table_of(push, after) : nullptr;
    if (!table) return false;
    return send_rows(
        push, table.get(),
        {static_cast<const KeyBytes *>(zVectorDataConst(keys.get())), zVectorSize(keys.get())});
}

// A file that was bound to another table, or was no drawing before, goes up like a new one.
bool send_drawing(Push &push, const DiffEntry *entry) {
    Repository *repository = push.remote->owner;
    const StreamPtr after = manifest(repository, *zDiffEntryNewId(entry));
    if (!after) return false;
    const Oid *old = zDiffEntryOldId(entry);
    if (zDiffEntryStatus(entry) == Z_KIND_ADDED || is_too_large(repository, *old))
        return send_whole(push, after.get());
    const StreamPtr before = manifest(repository, *old);
    if (!before) return false;
    return zDrawingTableSame(before.get(), after.get())
               ? send_increments(push, before.get(), after.get())
               : send_whole(push, after.get());
}

} // namespace

bool has_drawing_name(std::u16string_view path) {
    const size_t slash = path.find_last_of(u"/\\"), dot = path.rfind(u'.');
    if (dot == path.npos || (slash != path.npos && dot < slash)) return false;
    return zStrcasesameW(std::u16string(path.substr(dot)).c_str(), u".dwx");
}

std::optional<bool> is_drawing(Repository *repository, const zwchar *path, const Oid &blob) {
    if (!has_drawing_name(path)) return false;
    const StreamPtr stream = content(repository, blob);
    if (!stream) return {};
    if (!zDrawingDetectStream(nullptr, stream.get())) return false;
    if (!is_too_large(repository, blob)) return true;
    raise_range();
    return {};
}

bool push_drawings(Push &push, const std::vector<const DiffEntry *> &drawings) {
    for (const DiffEntry *entry : drawings) {
        if (send_drawing(push, entry) &&
            zRemoteUploadObject(push.remote, zDiffEntryNewId(entry), push.notify))
            continue;
        if (is_broken_off(push)) return false;
        notify_error(push.notify, u"odb.eFailedToPushDrawings");
        return fail_raised();
    }
    return true;
}

} // namespace zev
