// A server's end of one connection.
//
// States, as the transport reads them: reading (0) --request complete, answered--> head (1) -->
// body (2) --> reading, for the next request, or closed (4). A body that fails while it is sent
// leads to 5.
//
// One request is served at a time: what comes behind it waits here until its answer has left, and
// is taken up when the transport asks what to do next.
#include "network/http/server.hpp"

#include "common/errno.hpp"
#include "common/guard.hpp"
#include "common/uri.hpp"
#include "common/utf.hpp"
#include "network/tcp/tcp.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/lang.h"
#include "zev/str.h"

#include <algorithm>
#include <cassert>
#include <new>

using namespace zev;

namespace {

HttpEcho *echo_of(Echo *echo) { return reinterpret_cast<HttpEcho *>(echo); }

void drop_parser(HttpEcho *echo) { delete std::exchange(echo->parser, nullptr); }

void drop_message(HttpEcho *echo) {
    zHttpRequestFree(std::exchange(echo->request, nullptr));
    zHttpResponseFree(std::exchange(echo->response, nullptr));
}

// An answer that needs no procedure, in the form of every failure.
HttpResponse *plain_answer(int32_t code, HttpRequest *request) {
    Json *catalogue = zI18nLangLookup(language_of(request));
    return zHttpResponseFormat(code, u"%s", status_text(catalogue, code));
}

// ---- Reading

bool begin_request(HttpEcho *echo) {
    if (!echo->request && !(echo->request = zHttpRequestNew(nullptr))) return false;
    if (echo->parser) return true;
    echo->parser = new MessageParser(true, echo->server->limits);
    echo->parser->begin(echo->request, zHttpRequestParser());
    if (echo->peer.empty()) echo->peer = to_utf8(peer_address(echo->server->tcp));
    echo->body_from = 0;
    echo->body = 0;
    echo->told_to_go_on = false;
    return true;
}

// Decodes the body; null when it may pass.
HttpResponse *refuse_body(HttpEcho *echo, const HttpHandle *handle) {
    constexpr int32_t kTooMuch = 5; // class of what is out of range
    HttpRequest *request = echo->request;
    const HttpServer &server = *echo->server;
    const uint64_t most =
        server.body_bound ? server.body_bound(server, *handle, request) : server.limits.inflated;
    if (unzip_body(request, most)) return nullptr;
    const int32_t code = zErrorClass() == kTooMuch ? 413 : 400;
    return zHttpResponseError(__FILE__, __LINE__, request, code, nullptr);
}

HttpResponse *answer(HttpEcho *echo) {
    HttpRequest *request = echo->request;
    uri_drop_queries(&request->uri, u':'); // would stand in for captures that are absent
    const HttpHandle *handle = zHttpServerFindHandle(echo->server, request);
    if (!handle) return plain_answer(404, request);
    if (HttpResponse *refused = refuse_body(echo, handle)) return refused;
    HttpResponse *response = zHttpHandleCall(handle, echo->server, request);
    return response ? response : plain_answer(500, request);
}

bool is_refusal(int32_t status) { return status == 401 || status == 403 || status == 429; }

// Has the answer made, and a refusal written down.
bool make_answer(HttpEcho *echo) {
    const std::string &head = echo->parser->framing().head();
    echo->line.assign(head, 0, head.find('\r'));
    drop_parser(echo);
    echo->server->at_work = echo;
    echo->response = answer(echo);
    const int32_t status = echo->response ? echo->response->code : 500;
    if (is_refusal(status)) audit(echo->server, {.act = u"refused", .status = status});
    echo->server->at_work = nullptr;
    return echo->response;
}

void begin_answer(HttpEcho *echo) {
    echo->answering = true;
    echo->sent = 0;
    echo->state = Z_ECHO_WRHEADER;
}

bool end_request(HttpEcho *echo) {
    // Another protocol is not spoken here: the answer is in this one, and the last.
    if (echo->parser->framing().facts().upgrade) echo->request->header.alive = false;
    if (!make_answer(echo)) return false;
    echo->response->header.alive = echo->request->header.alive;
    begin_answer(echo);
    return true;
}

// A limit is told to the peer, who is not listened to any more; what is no HTTP is cut.
bool refuse(HttpEcho *echo, int status) {
    const std::string &head = echo->parser->framing().head();
    echo->line.assign(head, 0, std::min<size_t>(head.find('\r'), limits::http_target));
    drop_parser(echo);
    if (status != 413 && status != 414 && status != 431) return false;
    echo->waiting.clear();
    echo->response = plain_answer(status, nullptr);
    if (!echo->response) return false;
    echo->request->header.alive = echo->response->header.alive = false;
    begin_answer(echo);
    return true;
}

// A peer that waits to be told to send the body; one that sent some of it doesn't.
bool waits_for_word(HttpEcho *echo) {
    const Framing &framing = echo->parser->framing();
    if (!framing.has_head() || !framing.facts().expects) return false;
    return !std::exchange(echo->told_to_go_on, true) && framing.awaits_body();
}

bool take(HttpEcho *echo, std::string_view bytes) {
    if (!begin_request(echo)) return false;
    if (!echo->parser->framing().has_begun()) echo->began = os::calls.steady();
    size_t taken = 0;
    const bool fed = echo->parser->feed(bytes, &taken);
    if (!fed) return echo->parser->fault() && refuse(echo, echo->parser->fault());
    if (!echo->body_from && echo->parser->framing().has_head())
        echo->body_from = os::calls.steady();
    if (echo->body_from) echo->body += taken;
    echo->waiting.assign(bytes.substr(taken));
    if (echo->parser->is_complete()) return end_request(echo);
    if (waits_for_word(echo)) echo->state = Z_ECHO_WRHEADER;
    return true;
}

bool read(Echo *base, Chunk *chunk) try {
    HttpEcho *echo = echo_of(base);
    assert(echo->state == Z_ECHO_READ);
    return take(echo, {static_cast<const char *>(chunk->base), chunk->size});
} catch (...) {
    return fail_thrown();
}

// ---- Deadlines

// A peer that sends a byte now and then keeps a connection for ever, and is never silent.
bool is_too_slow(const HttpEcho *echo) {
    if (!echo->parser || !echo->parser->framing().has_begun()) return false;
    const int64_t now = os::calls.steady();
    if (!echo->body_from) return now - echo->began > limits::http_head_time;
    const int64_t span = now - echo->body_from - limits::http_body_grace;
    if (span <= 0) return false;
    const auto seconds = static_cast<uint64_t>(span / kSecond);
    return echo->body < seconds * limits::http_body_rate;
}

EchoAction action(Echo *base) {
    HttpEcho *echo = echo_of(base);
    if (echo->state != Z_ECHO_READ) return echo->state;
    if (is_too_slow(echo)) return Z_ECHO_ABORT;
    if (echo->waiting.empty() || echo->parser) return Z_ECHO_READ;
    try {
        const std::string waiting = std::exchange(echo->waiting, {});
        return take(echo, waiting) ? echo->state : EchoAction{Z_ECHO_ABORT};
    } catch (...) {
        return fail_thrown(), Z_ECHO_ABORT;
    }
}

// ---- Writing

// Writes the answer down, which has been handed over, or cut.
void note(HttpEcho *echo) {
    if (!std::exchange(echo->answering, false) || !echo->server) return;
    log_answer(echo->server->logs.access, {.peer = echo->peer,
                                           .request = echo->line,
                                           .login = zHttpRequestUser(echo->request),
                                           .status = echo->response->code,
                                           .bytes = echo->sent,
                                           .began = echo->began});
}

// The next message, or the end.
void finish(HttpEcho *echo) {
    note(echo);
    if (!echo->request->header.alive) {
        echo->state = Z_ECHO_CLOSE;
        return;
    }
    zHttpEchoReset(echo);
}

// Adds the body's next piece to what goes out.
bool append_piece(HttpEcho *echo) {
    Stream *body = echo->response->body;
    std::string &out = echo->outgoing;
    const size_t known = out.size();
    // No more room than it takes: the text stays with the connection, which may be idle for long.
    out.resize(known + std::min(echo->left, kBodyPiece));
    const uint64_t count = read_piece(body, out.data() + known, &echo->left);
    out.resize(known + count);
    echo->sent += count;
    if (!count) {
        echo->state = Z_ECHO_ABORT;
        return false;
    }
    echo->state = Z_ECHO_WRBODY;
    if (!echo->left) finish(echo);
    return true;
}

// A small body leaves with its head.
bool write_head(Echo *base, Chunk *chunk) try {
    HttpEcho *echo = echo_of(base);
    HttpResponse *response = echo->response;
    const HttpServer &server = *echo->server;
    zChunkSet(chunk, nullptr, 0);
    if (!response) { // the body is still to come
        echo->outgoing = "HTTP/1.1 100 Continue\r\n\r\n";
        echo->state = Z_ECHO_READ;
        return zChunkInit(chunk, echo->outgoing.data(), echo->outgoing.size());
    }

    const zwchar *accepted = zHttpRequestAcceptEncoding(echo->request);
    const bool zips = accepted && (zStrcasestrW(accepted, u"gzip") || // "identity" is no failure
                                   zStrcasestrW(accepted, u"deflate"));
    if (response->body && zips) zHttpResponseZipBody(response, accepted);
    if (!put_length(&response->header, response->body)) return false;
    echo->outgoing = response_head(*response, {server.timeout, server.maxconn});
    echo->left = body_size(response->body);
    if (!echo->left || echo->request->method == Z_HTTP_HEAD) {
        finish(echo);
    } else {
        zStreamRewind(response->body);
        if (echo->left > kBodyPiece) {
            echo->state = Z_ECHO_WRBODY;
        } else if (!append_piece(echo)) {
            return false;
        }
    }
    return zChunkInit(chunk, echo->outgoing.data(), echo->outgoing.size());
} catch (...) {
    return fail_thrown();
}

bool write_body(Echo *base, Chunk *chunk) try {
    HttpEcho *echo = echo_of(base);
    zChunkSet(chunk, nullptr, 0);
    echo->outgoing.clear();
    return append_piece(echo) && zChunkInit(chunk, echo->outgoing.data(), echo->outgoing.size());
} catch (...) {
    return fail_thrown();
}

// ---- The end

void close(Echo *base) { echo_of(base)->state = Z_ECHO_CLOSE; }

void abort(Echo *base) try {
    HttpEcho *echo = echo_of(base);
    note(echo);
    zHttpResponseFree(std::exchange(echo->response, nullptr));
    echo->state = Z_ECHO_ABORT;
} catch (...) {
    fail_thrown();
}

// For an accepted connection: none above the limit.
Echo *dup(Echo *base) {
    HttpServer *server = echo_of(base)->server;
    if (server && server->open >= server->limits.connections) {
        fail_os(EMFILE);
        return log_raised(kError, {}, kFacilitySrv), nullptr;
    }
    HttpEcho *echo = zHttpEchoNew(server);
    if (!echo) return nullptr;
    echo->counted = true;
    ++server->open;
    return &echo->head;
}

constexpr EchoClass kEcho = {
    .New = [](va_list) { return reinterpret_cast<Echo *>(zHttpEchoNew(nullptr)); },
    .Dup = dup,
    .Free = [](Echo *echo) { zHttpEchoFree(echo_of(echo)); },
    .Action = action,
    .Read = read,
    .WrHeader = write_head,
    .WrBody = write_body,
    .Close = close,
    .Abort = abort,
};

} // namespace

const EchoClass *zHttpEchoClass() { return &kEcho; }

HttpEcho *zHttpEchoNew(HttpServer *server) {
    auto *echo = new (std::nothrow) HttpEcho{};
    if (!echo) return fail_memory();
    zHttpEchoInit(echo, server);
    return echo;
}

bool zHttpEchoInit(HttpEcho *echo, HttpServer *server) {
    if (!echo) return fail_args();
    *echo = {};
    echo->head.table = &kEcho;
    echo->server = server;
    return true;
}

void zHttpEchoCleanup(HttpEcho *echo) {
    if (!echo) return;
    drop_parser(echo);
    drop_message(echo);
    if (std::exchange(echo->counted, false)) --echo->server->open;
}

void zHttpEchoFree(HttpEcho *echo) {
    zHttpEchoCleanup(echo);
    delete echo;
}

bool zHttpEchoReset(HttpEcho *echo) {
    if (!echo) return fail_args();
    drop_parser(echo);
    drop_message(echo);
    echo->state = Z_ECHO_READ;
    return true;
}
