// The kind of server that a host knows as "http": HTTP below, the routes of the service above.
#include "common/failure.hpp"
#include "common/guard.hpp"
#include "network/http/server.hpp"
#include "network/rest/operations.hpp"
#include "zev/http_server.h"

using namespace zev;

namespace {

HttpServer *http_of(Server *server) { return reinterpret_cast<HttpServer *>(server); }

constexpr ServerClass kHttp = {
    .Name = []() -> const zwchar * { return u"HTTP"; },
    .Version = []() -> const zwchar * { return u"0.0.1"; },
    .New =
        [](const Json *config, const zwchar *schema) {
            return reinterpret_cast<Server *>(zHttpServerNew(config, schema));
        },
    .Free = [](Server *server) { zHttpServerFree(http_of(server)); },
    .Loop = [](Server *server) { return zHttpServerLoop(http_of(server)); },
    .Stop = [](Server *server) { return zHttpServerStop(http_of(server)); },
};

} // namespace

bool zev::reload(const Server *server) {
    if (server->table != &kHttp) return true;
    return renew_identity(reinterpret_cast<const HttpServer *>(server));
}

const ServerClass *zHttpServerClass() { return &kHttp; }

HttpServer *zHttpServerNew(const Json *config, const zwchar *schema) try {
    if (!config || !schema) return fail_args();
    Owned<HttpServer, zHttpServerFree> server(new_http_server(&kHttp, config, schema));
    return server && rest::add_routes(server.get()) ? server.release() : nullptr;
} catch (...) {
    return fail_thrown();
}
