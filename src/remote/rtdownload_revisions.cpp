// Records of the revision database, as the server has them. A record goes in under the id that it
// was asked for by, and that it says.
#include "objects/history/revision.hpp"
#include "remote/rtdownload.hpp"
#include "stream/stream.hpp"
#include "zev/revdb.h"
#include "zev/revision.h"

#include <unordered_set>

namespace zev {

namespace {

// The ids of a history that have no record here, as [{"oid": ID}, ...].
JsonGuard missing_records(const RemoteCall &call, const Revdb *db, Json *entries, Ids &asked) {
    JsonGuard missing(zJsonNew(Z_JSON_ARRAY));
    if (!missing) throw std::bad_alloc();
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n) {
        Oid id;
        if (!read_id(&id, zJsonArrayAt(entries, n))) return wrong_data(call), JsonGuard();
        if (zRevdbExists(db, &id) || !asked.insert(id).second) continue;
        push(missing.get(), zJsonNewObject(u"oid", zJsonNewId(&id), nullptr));
    }
    return missing;
}

HttpRequest *ask_for_records(const RemoteCall &call, const Json *ids) {
    HttpRequest *request = make_request(call, Z_HTTP_PATCH, u"/revisions");
    if (!request) return nullptr;
    StreamPtr text(spill_stream());
    if (text && zJsonWriteStream(ids, text.get()) && zHttpRequestSetOctet(request, text.release()))
        return request;
    return notify_error(call.notify, call.unready);
}

// One that makes no sense is told, and the others go in.
void insert_records(const RemoteCall &call, Revdb *db, Json *entries, const Ids &asked) {
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n) {
        const RevisionPtr revision =
            revision_from_json(call.remote->owner, zJsonArrayAt(entries, n));
        if (revision && asked.contains(revision->id))
            zRevdbInsert(db, &revision->id, revision.get());
        else
            wrong_data(call);
    }
}

} // namespace

} // namespace zev

using namespace zev;

bool zRemoteDownloadRevision(Remote *remote, const Oid *id, const Notify *notify) try {
    if (!remote || !id) return fail_args();
    const RemoteCall call{remote, notify, u"net.eFailedToFetchRevisions"};
    const JsonGuard body =
        json_of(call, send(call, make_request(call, Z_HTTP_GET, u"/revisions/" + id_text(*id))));
    if (!body) return false;
    const RevisionPtr revision = revision_from_json(remote->owner, body.get());
    if (!revision || !zOidIsEqual(&revision->id, id)) return wrong_data(call);
    const RevdbPtr db(zRevdbOpen(remote->owner));
    return db && zRevdbInsert(db.get(), id, revision.get())
               ? true
               : notify_error(notify, u"net.eFailedToOpenRevdb");
} catch (...) {
    return fail_thrown();
}

bool zRemoteDownloadRevlist(Remote *remote, const Oid *head, uint64_t limit,
                            const Notify *notify) try {
    if (!remote || !head) return fail_args();
    const RemoteCall call{remote, notify, u"net.eFailedToFetchRevisions"};
    HttpRequest *request = make_request(
        call, Z_HTTP_GET, u"/revisions?head=" + id_text(*head) + u"&limit=" + limit_text(limit));
    if (!request) return false;
    const RevdbPtr db(zRevdbOpen(remote->owner));
    if (!db) return notify_error(notify, u"net.eFailedToOpenRevdb");
    JsonGuard body = json_of(call, send(call, request));
    Json *entries = entries_of(call, body);
    if (!entries) return false;
    Ids asked;
    const JsonGuard missing = missing_records(call, db.get(), entries, asked);
    if (!missing || asked.empty()) return missing != nullptr;
    body = json_of(call, send(call, ask_for_records(call, missing.get())));
    entries = entries_of(call, body);
    if (!entries) return false;
    insert_records(call, db.get(), entries, asked);
    return true;
} catch (...) {
    return fail_thrown();
}
