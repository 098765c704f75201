// The HTTP server: its settings, its routes, and the transport whose connections it answers. What
// it answers with is told by those above, see network/service.cpp.
#include "network/http/server.hpp"

#include "common/guard.hpp"
#include "network/tcp/tcp.hpp"
#include "network/tcp/tls.hpp"
#include "system/os.hpp"
#include "zev/json.h"
#include "zev/lang.h"
#include "zev/path.h"
#include "zev/str.h"
#include "zev/uri.h"

#include <new>
#include <string>

using namespace zev;

namespace {

Failure fail_improper(const std::u16string &setting, Here at = {}) {
    return logged_srv(
        raise_args(zI18nTextFormat(zI18nCurrentLang(), u"srv.eImproperSetting_s", setting.c_str())),
        at);
}

// A bound that can be set; those of heads can't be above what the parts below hold.
struct Bound {
    const zwchar *name;
    uint64_t HttpLimits::*field;
    int64_t most;
};
constexpr int64_t kMost = int64_t{1} << 40;
constexpr Bound kBounds[] = {
    {u"head", &HttpLimits::head, HTTP_MAX_HEADER_SIZE},
    {u"fields", &HttpLimits::fields, 10'000},
    {u"target", &HttpLimits::target, limits::http_target},
    {u"body", &HttpLimits::body, kMost},
    {u"json", &HttpLimits::json, kMost},
    {u"nodes", &HttpLimits::nodes, kMost},
    {u"object", &HttpLimits::object, UINT32_MAX},
    {u"inflated", &HttpLimits::inflated, kMost},
    {u"pack", &HttpLimits::pack, limits::pack_objects},
    {u"rowkey", &HttpLimits::row_key, limits::row_key}, // clients read no larger ones
    {u"rowvalue", &HttpLimits::row_value, limits::row_value},
    {u"headtime", &HttpLimits::head_time, 3600},
    {u"rate", &HttpLimits::rate, 1 << 30},
    {u"connections", &HttpLimits::connections, 1'000'000},
};

bool read_limits(HttpServer *server, const std::u16string &name, Json *section) {
    if (!section) return true;
    if (!zJsonIsObject(section)) return fail_improper(name);
    for (const Bound &bound : kBounds) {
        const Json *node = zJsonObjectAt(section, bound.name);
        if (!node) continue;
        const int64_t value = zJsonIsInt(node) ? zJsonGetInt(node) : 0;
        if (value < 1 || value > bound.most) return fail_improper(name + u"." + bound.name);
        server->limits.*bound.field = static_cast<uint64_t>(value);
    }
    return true;
}

// The path of a file, below the root where it is relative.
bool read_path(HttpServer *server, zwchar *path, const std::u16string &name, const Json *node) {
    const zwchar *root = zJsonPathGetString(server->head.config, u"path.root");
    const zwchar *text = node && zJsonIsString(node) ? zJsonGetString(node) : u"";
    if (!*text || !zPathExpandEnvStrings(path, text)) return fail_improper(name);
    if (zPathIsRelative(path) && !zPathMakeAbsolute(path, path, root)) return fail_improper(name);
    return true;
}

// A file for lines; absent means none.
bool read_log(HttpServer *server, LineFile &file, const std::u16string &name, Json *node) {
    if (!node) return true;
    zwchar path[Z_PATH_MAX];
    if (!read_path(server, path, name, node)) return false;
    file.set_path(path);
    return true;
}

constexpr const zwchar *kCertificate = u".certificate", *kKey = u".key";

// Whoever names one of the two wants TLS: it takes both.
bool is_secure(const HttpServer *server, const std::u16string &section) {
    return zJsonPathGet(server->head.config, (section + kCertificate).c_str()) ||
           zJsonPathGet(server->head.config, (section + kKey).c_str());
}

bool read_identity(HttpServer *server, const std::u16string &section) {
    zwchar certificate[Z_PATH_MAX], key[Z_PATH_MAX];
    const auto read = [&](zwchar *path, const zwchar *member) {
        const std::u16string name = section + member;
        return read_path(server, path, name, zJsonPathGet(server->head.config, name.c_str()));
    };
    if (!read(certificate, kCertificate) || !read(key, kKey)) return false;
    server->certificate = certificate, server->key = key;
    return tls_set_identity(server->tcp, certificate, key);
}

// A number that stays as it is where it is absent. What doesn't fit would be another one.
bool read_number(uint32_t *number, const std::u16string &name, Json *section, const zwchar *key,
                 int64_t most) {
    if (!section || !zJsonPathExists(section, key)) return true;
    const int64_t value = zJsonPathGetInt(section, key);
    if (value < 0 || value > most) return fail_improper(name + u"." + key);
    *number = static_cast<uint32_t>(value);
    return true;
}

bool read_numbers(HttpServer *server, const std::u16string &name, Json *section) {
    uint32_t seconds = 0;
    server->port = zUriDefaultPort(u"zev");
    server->maxconn = 1024;
    const bool read = read_number(&server->port, name, section, u"port", UINT16_MAX) &&
                      read_number(&server->maxconn, name, section, u"maxconn", INT32_MAX) &&
                      read_number(&seconds, name, section, u"timeout", UINT32_MAX / 1000);
    server->timeout = seconds * 1000;
    return read;
}

bool read_settings(HttpServer *server, const zwchar *schema) {
    Json *section = zJsonPathGet(server->head.config, schema);
    const std::u16string name = schema;
    const zwchar *host = section ? zJsonPathGetString(section, u"host") : nullptr;
    server->host = zStrdupW(host ? host : u"localhost");
    if (!server->host) return fail_memory();
    if (!read_numbers(server, name, section)) return false;
    if (!section) return true;
    // Whatever else is written there by a slip opens nothing.
    const zwchar *auth = zJsonPathGetString(section, u"auth");
    server->guarded = auth && !zStrcasesameW(auth, u"none");
    return read_limits(server, name + u".limits", zJsonPathGet(section, u"limits")) &&
           read_log(server, server->logs.access, name + u".log.access",
                    zJsonPathGet(section, u"log.access")) &&
           read_log(server, server->logs.audit, name + u".log.audit",
                    zJsonPathGet(section, u"log.audit"));
}

} // namespace

HttpServer *zev::new_http_server(const ServerClass *kind, const Json *config,
                                 const zwchar *schema) {
    Owned<HttpServer, zHttpServerFree> server(new (std::nothrow) HttpServer{});
    if (!server) return fail_memory();
    server->head.table = kind;
    server->began = os::calls.steady();
    if (!zServerInit(&server->head, config)) return nullptr;
    const auto release = [](void *handle) { zHttpHandleFree(static_cast<HttpHandle *>(handle)); };
    if (!zVectorInitPtr(&server->handles, 0, nullptr, release)) return nullptr;
    if (!read_settings(server.get(), schema)) return nullptr;
    server->prototype = zHttpEchoNew(server.get());
    if (!server->prototype) return nullptr;
    auto *echo = reinterpret_cast<Echo *>(server->prototype);
    const bool secure = is_secure(server.get(), schema);
    const LoopClass *transport = secure ? tls_class() : zTcpClass();
    server->tcp = zLoopNew(transport, echo, server->maxconn, server->timeout);
    if (!server->tcp || (secure && !read_identity(server.get(), schema))) return nullptr;
    return server.release();
}

bool zev::renew_identity(const HttpServer *server) {
    if (server->certificate.empty()) return true;
    return tls_set_identity(server->tcp, server->certificate.c_str(), server->key.c_str());
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

// A stop that came before there was anything to stop is kept, for one run.
bool zHttpServerLoop(HttpServer *server) {
    if (!server) return fail_args();
    const Finally stopped([server] { server->head.state = kServerStopped; });
    if (!zLoopListen(server->tcp, server->host, server->port)) return false;
    if (server->head.state == kServerStopping) zLoopClose(server->tcp);
    tell_ready(&server->head, zTcpPort(server->tcp));
    return zLoopRun(server->tcp);
}

bool zHttpServerStop(HttpServer *server) {
    if (!server) return fail_args();
    server->head.state = kServerStopping;
    return zLoopClose(server->tcp);
}
