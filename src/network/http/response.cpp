// Responses: a status, fields and a body; the form of every failure, and the way back from it to a
// text for the user.
#include "network/http/response.hpp"

#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/limits.hpp"
#include "common/log_level.hpp"
#include "common/utf.hpp"
#include "network/http/language.hpp"
#include "zev/error.h"
#include "zev/http_request.h"
#include "zev/lang.h"
#include "zev/log.h"
#include "zev/str.h"

#include <cstdarg>
#include <new>
#include <string_view>

using namespace zev;

namespace {

constexpr int32_t kCanceled = -2;
constexpr size_t kMessageMax = 512; // units of an error's message, with the terminator

bool set_text(zwchar *&text, const zwchar *source) {
    zwchar *copy = source ? zStrdupW(source) : nullptr;
    if (source && !copy) return fail_memory();
    free(std::exchange(text, copy));
    return true;
}

bool parse_status(void *target, int32_t code, const zwchar *text) {
    filled<HttpResponse>(target)->code = code;
    return set_text(filled<HttpResponse>(target)->reason, text);
}

constexpr HttpDelegates kParser = [] {
    HttpDelegates delegates = filling<HttpResponse>();
    delegates.begin = [](void *target) { return zHttpResponseReset(filled<HttpResponse>(target)); };
    delegates.status = parse_status;
    return delegates;
}();

// What an error body says, "CODE: MESSAGE"; false for any other body.
bool read_error(HttpResponse *response, zwchar *out, size_t size) {
    const zwchar *type = zHttpHeaderContentType(&response->header);
    if (!response->body || !type || !zStrcasesameW(type, u"application/json")) return false;
    zStreamRewind(response->body);
    JsonBounds bounds{limits::http_json, limits::http_nodes};
    const JsonGuard tree(json_read_bounded(response->body, bounds));
    zStreamRewind(response->body);
    const zwchar *message = tree ? zJsonPathGetString(tree.get(), u"error.message") : nullptr;
    if (!message) return false;
    const auto code = static_cast<int32_t>(zJsonPathGetInt(tree.get(), u"error.code"));
    zSnprintfW(out, size - 1, u"%d: %s", code, message);
    return true;
}

// Raises, logs, and gives the text that the client gets: "<text>: <status>", or the status alone.
const zwchar *raise_status(const char *file, int32_t line, int32_t code, const zwchar *text,
                           const zwchar *status) {
    zLogReport(file, line, kError, kFacilityNet, u"%s", text ? text : status);
    return zRaiseSrvErr(code, status, text ? u"%s" : nullptr, text), zErrorDetail();
}

} // namespace

namespace zev {

std::string response_head(const HttpResponse &response, const KeepAlive &keep) {
    std::string head = to_utf8(zStrsafeW(zHttpVersionName(response.header.version)));
    head.append(" ").append(std::to_string(response.code)).append(" ");
    head.append(to_utf8(zStrsafeW(zHttpResponseReason(&response)))).append("\r\n");
    append_fields(head, response.header, is_connection_field);
    if (response.header.alive)
        append_field(head, "Keep-Alive",
                     "timeout=" + std::to_string(keep.timeout) +
                         ", max=" + std::to_string(keep.maximum));
    append_field(head, "Connection", response.header.alive ? "Keep-Alive" : "close");
    return head.append("\r\n");
}

const zwchar *status_text(Json *catalogue, int32_t code) {
    zwchar key[16] = {};
    zSnprintfW(key, 15, u"http.%d", code);
    return zStrfromutf8(to_utf8(zI18nTextLookup(catalogue, key)).c_str());
}

} // namespace zev

const HttpDelegates *zHttpResponseParser() { return &kParser; }

// ---- Lifecycle

HttpResponse *zHttpResponseNew() {
    Owned<HttpResponse, zHttpResponseFree> response(new (std::nothrow) HttpResponse{});
    if (!response) return fail_memory();
    return zHttpResponseInit(response.get()) ? response.release() : nullptr;
}

bool zHttpResponseInit(HttpResponse *response) {
    if (!response) return fail_args();
    *response = {};
    response->code = 200;
    return zHttpHeaderInit(&response->header);
}

bool zHttpResponseReset(HttpResponse *response) {
    if (!response) return fail_args();
    response->code = 200;
    set_text(response->reason, nullptr);
    set_text(response->errorText, nullptr);
    set_body(response, nullptr);
    return zHttpHeaderReset(&response->header);
}

void zHttpResponseCleanup(HttpResponse *response) {
    if (!response) return;
    free(response->reason);
    free(response->errorText);
    zStreamFree(response->body);
    zHttpHeaderCleanup(&response->header);
    *response = {};
}

void zHttpResponseFree(HttpResponse *response) {
    zHttpResponseCleanup(response);
    delete response;
}

// ---- Header

HttpHeader *zHttpResponseHeader(HttpResponse *response) {
    return response ? &response->header : fail_args();
}
const zwchar *zHttpResponseField(HttpResponse *response, const zwchar *name) {
    return zHttpHeaderAt(Message(response).header, name);
}
bool zHttpResponseSetField(HttpResponse *response, const zwchar *name, const zwchar *value) {
    return zHttpHeaderPut(Message(response).header, name, value);
}
uint32_t zHttpResponseVersion(const HttpResponse *response) {
    return response ? response->header.version : (fail_args(), 0);
}
bool zHttpResponseSetVersion(HttpResponse *response, uint32_t version) {
    return zHttpHeaderSetVersion(Message(response).header, version);
}
bool zHttpResponseAlive(const HttpResponse *response) {
    return response ? response->header.alive : fail_args();
}
bool zHttpResponseSetAlive(HttpResponse *response, bool alive) {
    return zHttpHeaderSetAlive(Message(response).header, alive);
}

ZEV_MESSAGE_FIELD_SET(HttpResponse, ContentType)
ZEV_MESSAGE_FIELD_SET(HttpResponse, ContentCharset)
ZEV_MESSAGE_FIELD_SET(HttpResponse, ContentLanguage)
ZEV_MESSAGE_FIELD(HttpResponse, ContentEncoding)

// ---- Status

int32_t zHttpResponseCode(const HttpResponse *response) {
    return response ? response->code : (fail_args(), 0);
}
bool zHttpResponseSetCode(HttpResponse *response, int32_t code) {
    return response ? (response->code = code, true) : fail_args();
}
const zwchar *zHttpResponseReason(const HttpResponse *response) {
    if (!response) return fail_args();
    return response->reason ? response->reason : zHttpStatusMessage(response->code);
}
// A line feed would begin a field.
bool zHttpResponseSetReason(HttpResponse *response, const zwchar *reason) {
    const bool breaks =
        reason && std::u16string_view(reason).find_first_of(u"\r\n") != std::u16string_view::npos;
    return response && !breaks ? set_text(response->reason, reason) : fail_args();
}
bool zHttpResponseOk(const HttpResponse *response) {
    return response ? response->code >= 200 && response->code <= 299 : fail_args();
}
bool zHttpResponseUsrbrk(const HttpResponse *response) {
    return response ? response->code == kCanceled : fail_args();
}

// ---- Body

Stream *zHttpResponseBody(const HttpResponse *response) {
    return response ? response->body : fail_args();
}
bool zHttpResponseSetBody(HttpResponse *response, Stream *stream) {
    return set_body(response, stream);
}
bool zHttpResponseSetContents(HttpResponse *response, const zwchar *type, const zwchar *charset,
                              const zwchar *language, Stream *stream) {
    return set_contents(response, type, charset, language, stream);
}

bool zHttpResponseZipBody(HttpResponse *response, const zwchar *accepted) {
    if (!response || !accepted) return fail_args();
    if (!response->body || zHttpHeaderContentEncoding(&response->header)) return true;
    const zwchar *encoding = zStrcasestrW(accepted, u"gzip")      ? u"gzip"
                             : zStrcasestrW(accepted, u"deflate") ? u"deflate"
                                                                  : nullptr;
    return encoding ? zip_body(response, encoding) : fail_args();
}

bool zHttpResponseUnzipBody(HttpResponse *response) { return unzip_body(response); }

// ---- New responses

HttpResponse *zHttpResponseBlank(int32_t code) {
    HttpResponse *response = zHttpResponseNew();
    if (response) response->code = code;
    return response;
}

HttpResponse *zHttpResponseJson(int32_t code, const Json *json) {
    Owned<HttpResponse, zHttpResponseFree> response(zHttpResponseBlank(code));
    return response && set_json(response.get(), json) ? response.release() : nullptr;
}

HttpResponse *zHttpResponseOctet(int32_t code, Stream *stream) {
    Owned<Stream, zStreamFree> body(stream);
    Owned<HttpResponse, zHttpResponseFree> response(zHttpResponseBlank(code));
    return response && set_octet(response.get(), body.release()) ? response.release() : nullptr;
}

HttpResponse *zHttpResponseFile(int32_t code, const zwchar *path) {
    Owned<HttpResponse, zHttpResponseFree> response(zHttpResponseBlank(code));
    return response && set_file(response.get(), path) ? response.release() : nullptr;
}

HttpResponse *zHttpResponseFormat(int32_t code, const zwchar *format, ...) {
    if (!format) return fail_args();
    zwchar text[kMessageMax] = {};
    va_list arguments;
    va_start(arguments, format);
    zVsnprintfW(text, kMessageMax - 1, format, arguments);
    va_end(arguments);
    Owned<Json, zJsonFree> tree(zJsonNew(Z_JSON_OBJECT));
    if (!tree || !zJsonPathSetInt(tree.get(), u"error.code", code) ||
        !zJsonPathSetString(tree.get(), u"error.message", text))
        return nullptr;
    return zHttpResponseJson(code, tree.get());
}

HttpResponse *zHttpResponseError(const char *file, int32_t line, HttpRequest *request, int32_t code,
                                 const zwchar *key, ...) try {
    const std::u16string language = language_of(request);
    Json *catalogue = zI18nLangLookup(language.c_str());
    const zwchar *status = status_text(catalogue, code);
    const zwchar *text = nullptr;
    if (key && *key) {
        va_list arguments;
        va_start(arguments, key);
        text = zI18nTextFormatV(catalogue, key, arguments);
        va_end(arguments);
    }
    if (code == kCanceled) {
        if (!text) text = status;
        zRaiseCanceled(u"%s", text);
    } else {
        text = raise_status(file, line, code, text, status);
    }
    HttpResponse *response = zHttpResponseFormat(code, u"%s", zStrsafeW(text));
    if (response) zHttpHeaderSetContentLanguage(&response->header, language.c_str());
    return response;
} catch (...) {
    return fail_thrown();
}

const zwchar *zHttpResponseStrerr(HttpResponse *response) try {
    Json *catalogue = zI18nCurrentLang();
    if (!response) return status_text(catalogue, 503);
    zwchar text[1024] = {};
    const bool told = response->code != 200 && read_error(response, text, std::size(text));
    if (!set_text(response->errorText, told ? text : status_text(catalogue, response->code)))
        return nullptr;
    return response->errorText;
} catch (...) {
    return fail_thrown();
}
