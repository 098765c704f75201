// The HTTP server: its settings, its routes, and the transport whose connections it answers.
#include "network/http/server.hpp"

#include "common/guard.hpp"
#include "zev/json.h"
#include "zev/str.h"
#include "zev/tcp.h"
#include "zev/uri.h"

#include <new>
#include <string>

using namespace zev;

namespace {

HttpServer *http_of(Server *server) { return reinterpret_cast<HttpServer *>(server); }

bool read_settings(HttpServer *server, const zwchar *schema) {
    Json *section = zJsonPathGet(server->head.config, schema);
    const auto number = [&](const zwchar *key, uint32_t preset) {
        const bool given = section && zJsonPathExists(section, key);
        return given ? static_cast<uint32_t>(zJsonPathGetInt(section, key)) : preset;
    };
    const zwchar *host = section ? zJsonPathGetString(section, u"host") : nullptr;
    server->host = zStrdupW(host ? host : u"localhost");
    server->port = number(u"port", zUriDefaultPort(u"zev"));
    server->maxconn = number(u"maxconn", 1024);
    server->timeout = number(u"timeout", 0) * 1000;
    server->limits = kHttpLimits;
    return server->host != nullptr;
}

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

const ServerClass *zHttpServerClass() { return &kHttp; }

HttpServer *zHttpServerNew(const Json *config, const zwchar *schema) {
    if (!config || !schema) return fail_args();
    Owned<HttpServer, zHttpServerFree> server(new (std::nothrow) HttpServer{});
    if (!server) return fail_memory();
    server->head.table = &kHttp;
    if (!zServerInit(&server->head, config)) return nullptr;
    const auto release = [](void *handle) { zHttpHandleFree(static_cast<HttpHandle *>(handle)); };
    if (!zVectorInitPtr(&server->handles, 0, nullptr, release)) return nullptr;
    if (!read_settings(server.get(), schema)) return nullptr;
    server->prototype = zHttpEchoNew(server.get());
    if (!server->prototype) return nullptr;
    auto *echo = reinterpret_cast<Echo *>(server->prototype);
    server->tcp = zLoopNew(zTcpClass(), echo, server->maxconn, server->timeout);
    return server->tcp ? server.release() : nullptr;
}

void zHttpServerFree(HttpServer *server) {
    if (!server) return;
    zLoopFree(server->tcp);
    zHttpEchoFree(server->prototype);
    zVectorCleanup(&server->handles);
    free(server->host);
    zServerCleanup(&server->head);
    delete server;
}

Json *zHttpServerConfig(const HttpServer *server) {
    return server ? server->head.config : fail_args();
}

AuthTable *zHttpServerAuth(const HttpServer *server) {
    return server ? server->head.auth : fail_args();
}

bool zHttpServerAddHandle(HttpServer *server, const HttpHandle *handle) {
    if (!server || !handle || !handle->pattern || !handle->proc) return fail_args();
    Owned<HttpHandle, zHttpHandleFree> copy(zHttpHandleDup(handle));
    if (!copy || !zVectorPush(&server->handles, copy.get())) return false;
    static_cast<void>(copy.release());
    return true;
}

HttpHandle *zHttpServerFindHandle(HttpServer *server, HttpRequest *request) {
    if (!server || !request) return fail_args();
    auto *const *handles = static_cast<HttpHandle *const *>(server->handles.data);
    for (uint64_t i = 0; i < server->handles.size; ++i)
        if (zHttpHandleMatch(handles[i], request)) return handles[i];
    return nullptr;
}

// A stop that came before there was anything to stop is kept.
bool zHttpServerLoop(HttpServer *server) {
    if (!server) return fail_args();
    if (!zLoopListen(server->tcp, server->host, server->port)) return false;
    if (server->head.state == kServerStopping) zLoopClose(server->tcp);
    return zLoopRun(server->tcp);
}

bool zHttpServerStop(HttpServer *server) {
    if (!server) return fail_args();
    server->head.state = kServerStopping;
    return zLoopClose(server->tcp);
}
