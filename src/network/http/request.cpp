// Requests: a URI, fields and a body; and the head that is made of them.
#include "network/http/request.hpp"

#include "common/guard.hpp"
#include "common/uri.hpp"
#include "common/utf.hpp"
#include "zev/error.h"
#include "zev/http_client.h"
#include "zev/http_response.h"
#include "zev/str.h"
#include "zev/uri.h"

#include <cstdlib>
#include <new>
#include <string_view>

using namespace zev;

namespace {

constexpr uint64_t kTimeout = 30000; // milliseconds
constexpr const zwchar *kUser = u"X-ZEV-USER";
constexpr const zwchar *kCode = u"X-ZEV-CODE";

Uri *uri_of(HttpRequest *request) { return request ? &request->uri : nullptr; }
const Uri *uri_of(const HttpRequest *request) { return request ? &request->uri : nullptr; }

// A text that is no URI: host and port, or a host alone.
bool parse_host(Uri *uri, std::u16string_view text) {
    const size_t colon = text.find(u':');
    const std::u16string host(text.substr(0, colon));
    const std::u16string digits(colon == text.npos ? text.substr(0, 0) : text.substr(colon + 1));
    const uint32_t port = colon == text.npos
                              ? zUriDefaultPort(u"http")
                              : static_cast<uint32_t>(zStrtolW(digits.c_str(), nullptr, 10));
    return zUriSetSchema(uri, u"http") && zUriSetHost(uri, host.c_str()) && zUriSetPort(uri, port);
}

bool is_written_apart(const zwchar *name) {
    return zStrcasesameW(name, u"Host") || is_connection_field(name);
}

std::string host_line(const Uri *uri) {
    std::string host = to_utf8(zUriHost(uri));
    if (host.find(':') != host.npos && host.front() != '[') host = "[" + host + "]"; // of IPv6
    const uint32_t port = zUriPort(uri);
    if (port != zUriDefaultPort(zUriSchema(uri))) host.append(":").append(std::to_string(port));
    return host;
}

HttpResponse *send_as(HttpRequest *request, uint32_t method, Here at = {}) {
    if (!request) return fail_args(at);
    request->method = method;
    return zHttpRequestSend(request);
}

// ---- As a server's parser fills it

bool parse_url(void *target, const zwchar *text) {
    Wide url(zStrdupW(text));
    if (!url) return fail_memory();
    zwchar *raw = url.release();
    const bool done = zUriUnescape(&raw);
    url.reset(raw);
    return done && zHttpRequestSetUrl(filled<HttpRequest>(target), raw);
}

bool parse_field(void *target, const zwchar *name, const zwchar *value) {
    if (zStrcasesameW(name, u"host")) return zUriSetHost(&filled<HttpRequest>(target)->uri, value);
    return zHttpHeaderPut(&filled<HttpRequest>(target)->header, name, value);
}

constexpr HttpDelegates kParser = [] {
    HttpDelegates delegates = filling<HttpRequest>();
    delegates.begin = [](void *target) { return zHttpRequestReset(filled<HttpRequest>(target)); };
    delegates.url = parse_url;
    delegates.method = [](void *target, uint32_t code, const zwchar *) {
        return filled<HttpRequest>(target)->method = code, true;
    };
    delegates.field = parse_field;
    return delegates;
}();

} // namespace

namespace zev {

std::string request_head(HttpRequest *request) {
    HttpHeader *header = &request->header;
    const zwchar *text = zHttpRequestUrl(request);
    const auto url = text ? url_escape(text) : std::nullopt;
    if (!url) return fail_args(), "";
    const zwchar *method = zHttpMethodName(request->method);
    const zwchar *version = zHttpVersionName(header->version);
    if (!method || !version) return "";
    std::string head = to_utf8(method);
    head.append(" ").append(*url).append(" ").append(to_utf8(version)).append("\r\n");
    append_field(head, "Host", host_line(&request->uri));
    zHttpHeaderSetAcceptEncoding(header, u"gzip");
    append_fields(head, *header, is_written_apart);
    append_field(head, "Connection", header->alive ? "Keep-Alive" : "close");
    return head.append("\r\n");
}

} // namespace zev

const HttpDelegates *zHttpRequestParser() { return &kParser; }

// ---- Lifecycle

HttpRequest *zHttpRequestNew(const zwchar *url) {
    Owned<HttpRequest, zHttpRequestFree> request(new (std::nothrow) HttpRequest{});
    if (!request) return fail_memory();
    return zHttpRequestInit(request.get(), url) ? request.release() : nullptr;
}

bool zHttpRequestInit(HttpRequest *request, const zwchar *url) {
    if (!request) return fail_args();
    *request = {};
    request->timeout = kTimeout;
    if (zHttpHeaderInit(&request->header) && zUriInit(&request->uri, nullptr) &&
        (!url || zHttpRequestSetUrl(request, url)))
        return true;
    zHttpRequestCleanup(request);
    return false;
}

void zHttpRequestCleanup(HttpRequest *request) {
    if (!request) return;
    zHttpClientFree(request->client);
    zStreamFree(request->body);
    zUriCleanup(&request->uri);
    zHttpHeaderCleanup(&request->header);
    *request = {};
}

void zHttpRequestFree(HttpRequest *request) {
    zHttpRequestCleanup(request);
    delete request;
}

bool zHttpRequestReset(HttpRequest *request) {
    if (!request) return fail_args();
    HttpHeader *header = &request->header;
    const auto copy = [&](const zwchar *name) {
        const zwchar *value = zHttpHeaderAt(header, name);
        return Wide(value ? zStrdupW(value) : nullptr);
    };
    const Wide user = copy(kUser), code = copy(kCode);
    const bool alive = header->alive;
    request->method = Z_HTTP_GET;
    Uri *uri = &request->uri;
    set_body(request, nullptr);
    return zUriSetPath(uri, nullptr) && zUriClearQuery(uri) && zUriSetFragment(uri, nullptr) &&
           zHttpHeaderReset(header) && zHttpHeaderSetAlive(header, alive) &&
           zHttpRequestSetAccount(request, user.get(), code.get());
}

// ---- Header

HttpHeader *zHttpRequestHeader(HttpRequest *request) {
    return request ? &request->header : fail_args();
}
const zwchar *zHttpRequestField(HttpRequest *request, const zwchar *name) {
    return zHttpHeaderAt(Message(request).header, name);
}
bool zHttpRequestSetField(HttpRequest *request, const zwchar *name, const zwchar *value) {
    return zHttpHeaderPut(Message(request).header, name, value);
}
uint32_t zHttpRequestVersion(const HttpRequest *request) {
    return request ? request->header.version : (fail_args(), UINT32_MAX);
}
bool zHttpRequestSetVersion(HttpRequest *request, uint32_t version) {
    return zHttpHeaderSetVersion(Message(request).header, version);
}
bool zHttpRequestKeepAlive(const HttpRequest *request) {
    return request ? request->header.alive : fail_args();
}
bool zHttpRequestSetKeepAlive(HttpRequest *request, bool alive) {
    return zHttpHeaderSetAlive(Message(request).header, alive);
}

// ---- URI: kept without escapes, in as many bytes at most as it may have units

namespace {

uint64_t bytes_of(const zwchar *text) { return utf8_from_wide(text, zStrlenW(text), nullptr); }
bool has_room(const zwchar *text, uint64_t beside = 0) {
    return zStrlenW(text) + beside < Z_URL_MAX && bytes_of(text) + beside < Z_URL_MAX;
}

} // namespace

const zwchar *zHttpRequestUrl(HttpRequest *request) { return zUriStringfy(uri_of(request)); }

bool zHttpRequestSetUrl(HttpRequest *request, const zwchar *url) {
    if (!request || !url || !has_room(url)) return fail_args();
    Uri scratch;
    if (!zUriInit(&scratch, nullptr)) return false;
    Finally cleanup([&] { zUriCleanup(&scratch); });
    if (!zUriParse(&scratch, url) && !parse_host(&scratch, url)) return false;
    std::swap(scratch, request->uri);
    return true;
}

const zwchar *zHttpRequestHost(const HttpRequest *request) { return zUriHost(uri_of(request)); }
bool zHttpRequestSetHost(HttpRequest *request, const zwchar *host) {
    return zUriSetHost(uri_of(request), host);
}
uint32_t zHttpRequestPort(const HttpRequest *request) { return zUriPort(uri_of(request)); }
bool zHttpRequestSetPort(HttpRequest *request, uint32_t port) {
    return zUriSetPort(uri_of(request), port);
}
const zwchar *zHttpRequestPath(const HttpRequest *request) { return zUriPath(uri_of(request)); }
bool zHttpRequestSetPath(HttpRequest *request, const zwchar *path) {
    if (path && !has_room(path, 1)) return fail_args(); // a slash may go in front
    return zUriSetPath(uri_of(request), path);
}
bool zHttpRequestAppendPath(HttpRequest *request, const zwchar *path) {
    if (!request || !path) return fail_args();
    if (!has_room(path, 1 + bytes_of(zStrsafeW(zUriPath(&request->uri))))) return fail_args();
    return zUriAppendPath(uri_of(request), path);
}
bool zHttpRequestCatchPath(HttpRequest *request, const zwchar *pattern) {
    return zUriCatchPath(uri_of(request), pattern);
}
const zwchar *zHttpRequestQuery(const HttpRequest *request, const zwchar *key) {
    return zUriQuery(uri_of(request), key);
}
bool zHttpRequestParseQuery(HttpRequest *request, const zwchar *text) {
    return zUriParseQuery(uri_of(request), text);
}
bool zHttpRequestSetQuery(HttpRequest *request, const zwchar *key, const zwchar *value) {
    return zUriSetQuery(uri_of(request), key, value);
}
bool zHttpRequestRemoveQuery(HttpRequest *request, const zwchar *key) {
    return zUriRemoveQuery(uri_of(request), key);
}
bool zHttpRequestClearQuery(HttpRequest *request) { return zUriClearQuery(uri_of(request)); }

// ---- Other fields of the record

uint64_t zHttpRequestTimeout(const HttpRequest *request) {
    return request ? request->timeout : (fail_args(), 0);
}
bool zHttpRequestSetTimeout(HttpRequest *request, uint64_t milliseconds) {
    return request ? (request->timeout = milliseconds, true) : fail_args();
}
uint32_t zHttpRequestMethod(const HttpRequest *request) {
    return request ? request->method : (fail_args(), UINT32_MAX);
}
bool zHttpRequestSetMethod(HttpRequest *request, uint32_t method) {
    return request ? (request->method = method, true) : fail_args();
}
const Notify *zHttpRequestNotify(const HttpRequest *request) {
    return request ? request->notify : fail_args();
}
bool zHttpRequestSetNotify(HttpRequest *request, const Notify *notify) {
    return request ? (request->notify = notify, true) : fail_args();
}
bool zHttpRequestUsrbrk(const HttpRequest *request) {
    return request ? request->usrbrk : fail_args();
}

// ---- Fields by name

const zwchar *zHttpRequestUser(HttpRequest *request) { return zHttpRequestField(request, kUser); }
bool zHttpRequestSetUser(HttpRequest *request, const zwchar *user) {
    return zHttpRequestSetField(request, kUser, user);
}
const zwchar *zHttpRequestPassword(HttpRequest *request) {
    return zHttpRequestField(request, kCode);
}
bool zHttpRequestSetPassword(HttpRequest *request, const zwchar *password) {
    return zHttpRequestSetField(request, kCode, password);
}
bool zHttpRequestSetAccount(HttpRequest *request, const zwchar *user, const zwchar *password) {
    if (!request) return fail_args();
    return (!user || zHttpRequestSetUser(request, user)) &&
           (!password || zHttpRequestSetPassword(request, password));
}
bool zHttpRequestSetAccepts(HttpRequest *request, const zwchar *type, const zwchar *charset,
                            const zwchar *language) {
    if (!request) return fail_args();
    return (!type || zHttpRequestSetAcceptType(request, type)) &&
           (!charset || zHttpRequestSetAcceptCharset(request, charset)) &&
           (!language || zHttpRequestSetAcceptLanguage(request, language));
}

ZEV_MESSAGE_FIELD_SET(HttpRequest, AcceptType)
ZEV_MESSAGE_FIELD_SET(HttpRequest, AcceptCharset)
ZEV_MESSAGE_FIELD_SET(HttpRequest, AcceptLanguage)
ZEV_MESSAGE_FIELD_SET(HttpRequest, AcceptEncoding)
ZEV_MESSAGE_FIELD_SET(HttpRequest, ContentType)
ZEV_MESSAGE_FIELD_SET(HttpRequest, ContentCharset)
ZEV_MESSAGE_FIELD_SET(HttpRequest, ContentLanguage)
ZEV_MESSAGE_FIELD(HttpRequest, ContentEncoding)

// ---- Body

Stream *zHttpRequestBody(const HttpRequest *request) {
    return request ? request->body : fail_args();
}
bool zHttpRequestSetBody(HttpRequest *request, Stream *stream) { return set_body(request, stream); }
bool zHttpRequestSetContents(HttpRequest *request, const zwchar *type, const zwchar *charset,
                             const zwchar *language, Stream *stream) {
    return set_contents(request, type, charset, language, stream);
}
bool zHttpRequestSetJson(HttpRequest *request, const Json *json) { return set_json(request, json); }
bool zHttpRequestSetOctet(HttpRequest *request, Stream *stream) {
    return set_octet(request, stream);
}
bool zHttpRequestSetFile(HttpRequest *request, const zwchar *path) {
    return set_file(request, path);
}
bool zHttpRequestZipBody(HttpRequest *request) { return zip_body(request, u"gzip"); }
bool zHttpRequestUnzipBody(HttpRequest *request) { return unzip_body(request); }

// ---- Sending

HttpResponse *zHttpRequestSend(HttpRequest *request) {
    if (!request) return fail_args();
    const zwchar *host = zUriHost(&request->uri);
    if (!request->client) {
        if (!*host) return fail_args();
        request->client = zHttpClientNew(host, zUriPort(&request->uri));
        if (!request->client) return nullptr;
    }
    request->usrbrk = false;
    HttpResponse *response = zHttpClientSend(request->client, request);
    request->usrbrk = response && zHttpResponseUsrbrk(response);
    return response;
}

HttpResponse *zHttpRequestGet(HttpRequest *request) { return send_as(request, Z_HTTP_GET); }
HttpResponse *zHttpRequestHead(HttpRequest *request) { return send_as(request, Z_HTTP_GET); }
HttpResponse *zHttpRequestPost(HttpRequest *request) { return send_as(request, Z_HTTP_POST); }
HttpResponse *zHttpRequestPut(HttpRequest *request) { return send_as(request, Z_HTTP_PUT); }
HttpResponse *zHttpRequestDelete(HttpRequest *request) { return send_as(request, Z_HTTP_DELETE); }
HttpResponse *zHttpRequestPatch(HttpRequest *request) { return send_as(request, Z_HTTP_PATCH); }
