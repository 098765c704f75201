// The client's end of a connection.
//
// States, as the transport reads them: closed (4) or cut (5) --connect--> head (1) --> body (2)
// --> reading (0) --answer--> paused (3), used by the next send, or closed (4). A failure or the
// user's break leads to 5, a peer that closes to 4.
#include "network/http/parser.hpp"
#include "network/http/request.hpp"
#include "network/tcp/tls.hpp"
#include "zev/http_client.h"
#include "zev/http_response.h"

#include "common/guard.hpp"
#include "common/uri.hpp"
#include "common/utf.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/error.h"
#include "zev/lang.h"
#include "zev/notify.h"
#include "zev/number.h"
#include "zev/str.h"
#include "zev/tcp.h"

#include <cassert>
#include <new>
#include <string>
#include <vector>

#include <uv.h>

using namespace zev;

namespace {

constexpr int64_t kReportSpan = 100'000'000; // nanoseconds between reports
constexpr int kAttempts = 2;

// What is being sent: a head, then piece by piece the body.
struct SendBuffer {
    std::string head;
    std::vector<char> piece;
    uint64_t left = 0; // of the body, as its length was told
};

HttpClient *client_of(Echo *echo) { return reinterpret_cast<HttpClient *>(echo); }
MessageParser *parser_of(HttpClient *client) {
    return static_cast<MessageParser *>(client->parser);
}
SendBuffer *buffer_of(HttpClient *client) { return static_cast<SendBuffer *>(client->buffer); }

void drop_parser(HttpClient *client) {
    delete parser_of(client);
    client->parser = nullptr;
}

void drop_response(HttpClient *client) {
    zHttpResponseFree(std::exchange(client->response, nullptr));
}

bool stop(HttpClient *client) {
    client->state = Z_ECHO_ABORT;
    return false;
}

// ---- Progress

void report(HttpClient *client) {
    const int64_t now = os::calls.now();
    const int64_t span = now - nanoseconds_of(client->reported);
    if (span >= 0 && span <= kReportSpan) return;
    client->reported = time_of(now);
    const TransferUsage &usage = *zLoopUsage(client->loop);
    const uint64_t total =
        usage.total_read + usage.total_written + usage.read_bytes + usage.write_bytes;
    const uint64_t speed = (usage.read_speed + usage.write_speed) >> 1;
    zNotifyProgress(client->request->notify, u"%s",
                    zI18nTextFormat(zI18nCurrentLang(), u"action.sTransferringAtSpeed_s_s",
                                    zNumToHumanBytes(total), zNumToHumanBytes(speed)));
}

EchoAction action(Echo *echo) {
    HttpClient *client = client_of(echo);
    const Notify *notify = client->request ? client->request->notify : nullptr;
    if (!notify || client->state >= Z_ECHO_PAUSE) return client->state;
    report(client);
    if (!zNotifyIsUsrbrk(notify)) return client->state;
    zRaiseCanceled(nullptr);
    client->canceled = true;
    return client->state = Z_ECHO_ABORT;
}

// ---- Writing

bool write_head(Echo *echo, Chunk *chunk) try {
    HttpClient *client = client_of(echo);
    HttpRequest *request = client->request;
    zChunkSet(chunk, nullptr, 0);
    if (request->body && !zHttpRequestZipBody(request)) return stop(client);
    if (!rewind_whole(request->body)) return stop(client);
    if (!put_length(&request->header, request->body)) return stop(client);
    SendBuffer &buffer = *buffer_of(client);
    buffer.head = request_head(request);
    if (buffer.head.empty()) return stop(client);
    buffer.left = body_size(request->body);
    client->state = buffer.left ? Z_ECHO_WRBODY : Z_ECHO_READ;
    return zChunkInit(chunk, buffer.head.data(), buffer.head.size());
} catch (...) {
    return fail_thrown(), stop(client_of(echo));
}

bool write_body(Echo *echo, Chunk *chunk) try {
    HttpClient *client = client_of(echo);
    Stream *body = client->request->body;
    zChunkSet(chunk, nullptr, 0);
    if (!body) return stop(client);
    SendBuffer &buffer = *buffer_of(client);
    buffer.piece.resize(kBodyPiece);
    const uint64_t count = read_piece(body, buffer.piece.data(), &buffer.left);
    if (!count) return stop(client);
    client->state = buffer.left ? Z_ECHO_WRBODY : Z_ECHO_READ;
    return zChunkInit(chunk, buffer.piece.data(), count);
} catch (...) {
    return fail_thrown(), stop(client_of(echo));
}

// ---- Reading

bool begin_response(HttpClient *client) {
    if (client->parser) return true;
    client->response = zHttpResponseNew();
    auto *parser = client->response ? new MessageParser(false, kHttpLimits) : nullptr;
    if (!parser) return false;
    parser->begin(client->response, zHttpResponseParser(), client->request->method == Z_HTTP_HEAD);
    client->parser = parser;
    return true;
}

// What came behind the answer is no answer to anything: that connection is not used again. Nor is
// one on which the request was not sent whole.
bool end_response(HttpClient *client, bool alone) {
    drop_parser(client);
    alone = alone && !buffer_of(client)->left;
    if (!zHttpResponseUnzipBody(client->response)) return drop_response(client), stop(client);
    const bool kept = alone && client->response->header.alive && client->request->header.alive;
    client->state = kept ? Z_ECHO_PAUSE : Z_ECHO_CLOSE;
    return true;
}

// A server may answer before the request was sent whole: the transport reads when all is written,
// or something has come. Behind an interim answer the rest is sent.
bool read(Echo *echo, Chunk *chunk) try {
    HttpClient *client = client_of(echo);
    if (!begin_response(client)) return stop(client);
    size_t taken = 0;
    const std::string_view bytes(static_cast<char *>(chunk->base), chunk->size);
    if (!parser_of(client)->feed(bytes, &taken)) {
        drop_parser(client);
        drop_response(client);
        return stop(client);
    }
    if (parser_of(client)->is_complete()) return end_response(client, taken == bytes.size());
    const bool sends = buffer_of(client)->left && !parser_of(client)->framing().has_begun();
    client->state = sends ? Z_ECHO_WRBODY : Z_ECHO_READ;
    return true;
} catch (...) {
    return fail_thrown(), stop(client_of(echo));
}

// ---- The end of a connection

// Some answers end with it; any other that isn't complete is none.
void close(Echo *echo) {
    HttpClient *client = client_of(echo);
    if (client->parser && parser_of(client)->end()) end_response(client, true);
    if (client->parser) drop_response(client);
    drop_parser(client);
    if (!client->response) raise_uv(UV_EOF);
    client->state = Z_ECHO_CLOSE;
}

void abort(Echo *echo) {
    HttpClient *client = client_of(echo);
    drop_parser(client);
    drop_response(client);
    client->state = Z_ECHO_ABORT;
}

// The record is the caller's: the transport gives back only what is of the connection.
void release(Echo *echo) {
    drop_parser(client_of(echo));
    client_of(echo)->state = Z_ECHO_CLOSE;
}

constexpr EchoClass kClient = {
    .New = [](va_list) { return reinterpret_cast<Echo *>(zHttpClientNew(u"localhost", 80)); },
    .Dup =
        [](Echo *echo) {
            const HttpClient *client = client_of(echo);
            return reinterpret_cast<Echo *>(zHttpClientNew(client->host, client->port));
        },
    .Free = release,
    .Action = action,
    .Read = read,
    .WrHeader = write_head,
    .WrBody = write_body,
    .Close = close,
    .Abort = abort,
};

// ---- Sending

// What the transport could not do; the error record keeps the transport's own reason.
HttpResponse *unavailable(HttpClient *client, Here at = {}) {
    if (client->response) return client->response;
    const KeptFailure kept;
    return client->response = zHttpResponseError(at.file, at.line, client->request, 503, nullptr);
}

HttpResponse *broken_off(HttpClient *client, Here at = {}) {
    drop_response(client);
    return client->response =
               zHttpResponseError(at.file, at.line, client->request, -2, u"action.sCanceled");
}

// One attempt; false when the connection ended without an answer and another one may do.
bool attempt(HttpClient *client, bool *failed) {
    *failed = true;
    const bool closed = client->state == Z_ECHO_CLOSE || client->state == Z_ECHO_ABORT;
    if (closed && !zLoopConnect(client->loop, client->host, client->port)) return false;
    client->state = Z_ECHO_WRHEADER;
    if (!zLoopOnce(client->loop)) return client->canceled;
    *failed = false;
    return client->canceled || client->response;
}

const LoopClass *transport_of(const HttpRequest *request) {
    return zStrcasesameW(zUriSchema(&request->uri), u"https") ? tls_class() : zTcpClass();
}

HttpResponse *send_as(HttpClient *client, HttpRequest *request, uint32_t method, Here at = {}) {
    if (!client || !request) return fail_args(at);
    request->method = method;
    return zHttpClientSend(client, request);
}

} // namespace

const EchoClass *zHttpClientClass() { return &kClient; }

HttpClient *zHttpClientNew(const zwchar *host, uint32_t port) {
    Owned<HttpClient, zHttpClientFree> client(new (std::nothrow) HttpClient{});
    if (!client) return fail_memory();
    return zHttpClientInit(client.get(), host, port) ? client.release() : nullptr;
}

bool zHttpClientInit(HttpClient *client, const zwchar *host, uint32_t port) {
    if (!client || !host) return fail_args();
    *client = {};
    client->head.table = &kClient;
    client->state = Z_ECHO_CLOSE;
    client->port = port;
    client->host = zStrdupW(host);
    client->buffer = new (std::nothrow) SendBuffer;
    if (client->host && client->buffer) return true;
    zHttpClientCleanup(client);
    return fail_memory();
}

void zHttpClientCleanup(HttpClient *client) {
    if (!client) return;
    client->state = Z_ECHO_ABORT;
    zLoopFree(client->loop);
    drop_parser(client);
    drop_response(client);
    delete buffer_of(client);
    free(client->host);
    const EchoClass *table = client->head.table;
    *client = {};
    client->head.table = table;
}

void zHttpClientFree(HttpClient *client) {
    zHttpClientCleanup(client);
    delete client;
}

HttpResponse *zHttpClientSend(HttpClient *client, HttpRequest *request) try {
    if (!client || !request) return fail_args();
    client->request = request;
    client->canceled = false;
    drop_response(client);
    if (!uri_fits(&request->uri)) return fail_args(), unavailable(client); // another request
    const LoopClass *kind = transport_of(request);
    if (!client->loop) client->loop = zLoopNew(kind, &client->head, 1, request->timeout);
    if (!client->loop) return unavailable(client);
    if (client->loop->table != kind) return fail_args(), unavailable(client); // nor in the clear
    bool failed = false;
    for (int i = 0; i < kAttempts && !failed; ++i) {
        if (!attempt(client, &failed)) continue;
        return client->canceled ? broken_off(client) : client->response;
    }
    return unavailable(client);
} catch (...) {
    return fail_thrown();
}

HttpResponse *zHttpClientGet(HttpClient *client, HttpRequest *request) {
    return send_as(client, request, Z_HTTP_GET);
}
HttpResponse *zHttpClientHead(HttpClient *client, HttpRequest *request) {
    return send_as(client, request, Z_HTTP_GET);
}
HttpResponse *zHttpClientPost(HttpClient *client, HttpRequest *request) {
    return send_as(client, request, Z_HTTP_POST);
}
HttpResponse *zHttpClientPut(HttpClient *client, HttpRequest *request) {
    return send_as(client, request, Z_HTTP_PUT);
}
HttpResponse *zHttpClientDelete(HttpClient *client, HttpRequest *request) {
    return send_as(client, request, Z_HTTP_DELETE);
}
HttpResponse *zHttpClientPatch(HttpClient *client, HttpRequest *request) {
    return send_as(client, request, Z_HTTP_PATCH);
}
