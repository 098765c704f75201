// One object, or a pack of named ones, on their way to the server; their forms are those of
// network/rest/repos/object_stream.hpp and pack_stream.hpp. Bodies are put aside in files.
#include "network/rest/repos/object_stream.hpp"
#include "network/rest/repos/pack_stream.hpp"
#include "objects/store/odb.hpp"
#include "remote/remote.hpp"
#include "stream/stream.hpp"
#include "zev/odb.h"
#include "zev/pack.h"

using namespace zev;

namespace {

using BuilderPtr = Owned<PackBuilder, zPackBuilderFree>;

// The body goes to the request; what the server answers beyond its status is not looked at.
bool upload(Remote *remote, const Notify *notify, uint32_t method, std::u16string_view tail,
            StreamPtr body) {
    const RemoteCall call{remote, nullptr, u"net.eFailedToPushLocalChanages",
                          u"net.eFailedToCreatePushRequest"};
    HttpRequest *request = make_request(call, method, tail);
    if (!request || !zHttpRequestSetNotify(request, notify) ||
        !zHttpRequestSetOctet(request, body.release()))
        return false;
    return send(call, request) != nullptr;
}

bool insert_all(PackBuilder *builder, const Json *ids) {
    const uint64_t count = zJsonArraySize(ids);
    for (uint64_t n = 0; n < count; ++n) {
        Oid id;
        const Json *text = zJsonArrayAt(ids, n);
        if (!zJsonIsString(text)) return false;
        if (!zOidFromStr(&id, zJsonGetString(text)) || !zPackBuilderInsert(builder, &id))
            return false;
    }
    return true;
}

} // namespace

bool zRemoteUploadObject(Remote *remote, const Oid *id, const Notify *notify) try {
    if (!remote || !id) return fail_args();
    const OdbPtr odb(zOdbOpen(remote->owner));
    if (!odb || !zOdbExists(odb.get(), id)) return raise_not_found(id_text(*id));
    StreamPtr stream(spill_stream());
    return stream && rest::copy_object(stream.get(), odb.get(), *id) &&
           upload(remote, notify, Z_HTTP_PUT, u"/objects/" + id_text(*id), std::move(stream));
} catch (...) {
    return fail_thrown();
}

bool zRemoteUploadPack(Remote *remote, const Json *ids, const Notify *notify) try {
    if (!remote || !ids) return fail_args();
    const BuilderPtr builder(zPackBuilderNew(remote->owner));
    if (!builder || !insert_all(builder.get(), ids)) return false;
    StreamPtr stream(spill_stream());
    const auto put = [](const void *bytes, uint64_t size, void *to) {
        return rest::write_piece(static_cast<Stream *>(to), bytes, size) ? 0 : -1;
    };
    return stream && zPackBuilderForeach(builder.get(), put, stream.get()) &&
           upload(remote, notify, Z_HTTP_POST, u"/packs", std::move(stream));
} catch (...) {
    return fail_thrown();
}
