// A server's end of one connection.
//
// States, as the transport reads them: reading (0) --request complete, answered--> head (1) -->
// body (2) --> reading, for the next request, or closed (4). A body that fails while it is sent
// leads to 5. From reading there is a way to work (6) and back, while a body is taken that needs
// more than one turn of the loop. An answer that leaves before its request is complete leads to
// the end that waits for the peer (7) instead of 4.
//
// The service looks at a request when its head is whole: what it refuses then is answered at once,
// and what else the body would have been is not listened to.
//
// One request is served at a time: what comes behind it waits here until its answer has left, and
// is taken up when the transport asks what to do next.
#include "network/http/server.hpp"

#include "common/errno.hpp"
#include "common/guard.hpp"
#include "common/told_errno.hpp"
#include "common/uri.hpp"
#include "common/utf.hpp"
#include "network/http/language.hpp"
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

// What was begun for a request goes before it.
void drop_message(HttpEcho *echo) {
    echo->intake.reset();
    echo->exchange.reset();
    zHttpRequestFree(std::exchange(echo->request, nullptr));
    zHttpResponseFree(std::exchange(echo->response, nullptr));
}

// It isn't one of the server's connections any more.
void stop_counting(HttpEcho *echo) {
    if (std::exchange(echo->counted, false)) --echo->server->open;
}

// An answer that needs no procedure, in the form of every failure.
HttpResponse *plain_answer(int32_t code, HttpRequest *request) try {
    Json *catalogue = zI18nLangLookup(language_of(request).c_str());
    return zHttpResponseFormat(code, u"%s", status_text(catalogue, code));
} catch (...) {
    return fail_thrown();
}

// ---- Reading

bool begin_request(HttpEcho *echo) {
    if (!echo->server) return false; // of a host's own transport: nobody answers there
    if (!echo->request && !(echo->request = zHttpRequestNew(nullptr))) return false;
    if (echo->parser) return true;
    echo->parser = new MessageParser(true, echo->server->limits);
    echo->parser->begin(echo->request, zHttpRequestParser());
    echo->parser->stop_at_heads();
    if (echo->peer.empty()) echo->peer = to_utf8(peer_address(echo->server->tcp));
    echo->body_from = 0;
    echo->body = 0;
    echo->told_to_go_on = false;
    return true;
}

bool is_refusal(int32_t status) { return status == 401 || status == 403 || status == 429; }

// What is done for the request at hand, which the log and the gate may ask about.
template <class F> auto at_work(HttpEcho *echo, F work) {
    echo->server->at_work = echo;
    const Finally done([&] { echo->server->at_work = nullptr; });
    return work();
}

// Takes an answer over, and writes a refusal down. What was begun for the request ends here.
bool settle(HttpEcho *echo, HttpResponse *response) {
    echo->intake.reset();
    echo->exchange.reset();
    zHttpResponseFree(std::exchange(echo->response, response));
    const int32_t status = response ? response->code : 500;
    if (is_refusal(status))
        at_work(echo, [&] { audit(echo->server, {.act = u"refused", .status = status}); });
    return response;
}

// An answer to what is not complete is the last: where the next request begins is not known.
bool begin_answer(HttpEcho *echo, bool complete) {
    echo->unread = !complete;
    if (!complete) echo->request->header.alive = false;
    drop_parser(echo);
    echo->response->header.alive = echo->request->header.alive;
    echo->answering = true;
    echo->sent = 0;
    echo->state = Z_ECHO_WRHEADER;
    return true;
}

// ---- The head

HttpResponse *refusal_at_head(HttpEcho *echo) {
    HttpRequest *request = echo->request;
    uri_drop_queries(&request->uri, u':'); // would stand in for captures that are absent
    echo->handle = zHttpServerFindHandle(echo->server, request);
    if (!echo->handle) return plain_answer(404, request);
    if (echo->server->begin)
        echo->exchange = echo->server->begin(echo->server, *echo->handle, request);
    if (!echo->exchange) {
        echo->exchange = std::make_unique<Exchange>();
        echo->exchange->most = echo->server->limits.inflated;
    }
    if (HttpResponse *refusal = std::exchange(echo->exchange->refusal, nullptr)) return refusal;
    const bool encoded = zHttpRequestContentEncoding(request);
    if (encoded || echo->parser->framing().facts().length <= echo->exchange->most) return nullptr;
    return zHttpResponseError(__FILE__, __LINE__, request, 413, nullptr);
}

// Of the body, when the head was looked at. What belongs to a request that was refused is dropped.
constexpr HttpDelegates kBody = [] {
    HttpDelegates delegates{};
    delegates.body = [](void *target, const void *bytes, uint64_t length) {
        auto &intake = static_cast<HttpEcho *>(target)->intake;
        return !intake || intake->take({static_cast<const char *>(bytes), length});
    };
    return delegates;
}();

// False where not even a refusal can be made.
bool take_head(HttpEcho *echo) {
    const Framing &framing = echo->parser->framing();
    echo->body_from = os::calls.steady();
    echo->line.assign(framing.head(), 0, framing.head().find('\r'));
    // Another protocol is not spoken here: the answer is in this one, and the last.
    if (framing.facts().upgrade) echo->request->header.alive = false;
    HttpResponse *refusal = at_work(echo, [&] { return refusal_at_head(echo); });
    if (!refusal && !echo->exchange) return false;
    if (refusal)
        settle(echo, refusal);
    else
        echo->intake.emplace(echo->request, echo->exchange.get());
    echo->parser->hand_over(echo, &kBody);
    return true;
}

// ---- The body

// Has the answer made.
bool answer(HttpEcho *echo, bool complete) {
    HttpResponse *response =
        at_work(echo, [&] { return zHttpHandleCall(echo->handle, echo->server, echo->request); });
    if (!response) response = plain_answer(500, echo->request);
    return settle(echo, response) && begin_answer(echo, complete);
}

// A peer that waits to be told to send the body; one that sent some of it doesn't.
bool waits_for_word(HttpEcho *echo) {
    const Framing &framing = echo->parser->framing();
    if (!framing.facts().expects) return false;
    return !std::exchange(echo->told_to_go_on, true) && framing.awaits_body();
}

// What is to be done once more of the request is there, or more of it was decoded.
bool go_on(HttpEcho *echo) {
    const bool whole = echo->parser->is_complete();
    if (echo->response) return begin_answer(echo, whole);
    BodyIntake &intake = *echo->intake;
    const bool complete = whole && !intake.has_more();
    if (complete && !intake.end()) return false;
    if (const int fault = intake.fault()) {
        HttpResponse *refusal =
            zHttpResponseError(__FILE__, __LINE__, echo->request, fault, nullptr);
        return settle(echo, refusal) && begin_answer(echo, whole);
    }
    if (complete || intake.is_enough()) return answer(echo, whole);
    echo->exchange->wait();
    const bool works = intake.has_more() || intake.streams();
    echo->state = works ? EchoAction{kEchoWork} : EchoAction{Z_ECHO_READ};
    if (!works && waits_for_word(echo)) echo->state = Z_ECHO_WRHEADER;
    return true;
}

// One block of what is left to decode, then on with reading.
bool work(HttpEcho *echo) {
    if (!echo->intake->has_more()) {
        echo->state = Z_ECHO_READ;
        return true;
    }
    return echo->intake->step() && go_on(echo);
}

// ---- Reading

// A limit is told to the peer, who is not listened to any more; what is no HTTP is cut.
bool refuse(HttpEcho *echo, int status) {
    const std::string &head = echo->parser->framing().head();
    echo->line.assign(head, 0, std::min<size_t>(head.find('\r'), limits::http_target));
    if (status != 413 && status != 414 && status != 431) return false;
    HttpResponse *refusal = plain_answer(status, nullptr);
    return settle(echo, refusal) && begin_answer(echo, false);
}

// The head first: what it says decides where the body goes.
bool feed(HttpEcho *echo, std::string_view bytes, size_t *taken) {
    MessageParser &parser = *echo->parser;
    const bool in_head = !parser.framing().has_head();
    if (!parser.feed(bytes, taken)) return false;
    if (!in_head || !parser.framing().has_head()) return true;
    if (!take_head(echo)) return false;
    size_t more = 0;
    const bool fed = parser.feed(bytes.substr(*taken), &more);
    *taken += more;
    return fed;
}

bool take(HttpEcho *echo, std::string_view bytes) {
    if (!begin_request(echo)) return false;
    if (!echo->parser->framing().has_begun()) echo->began = os::calls.steady();
    size_t taken = 0;
    if (!feed(echo, bytes, &taken)) {
        if (echo->response) return begin_answer(echo, false);
        return echo->parser->fault() && refuse(echo, echo->parser->fault());
    }
    if (echo->body_from) echo->body += taken;
    echo->waiting.assign(bytes.substr(taken));
    if (!echo->parser->framing().has_head()) return true;
    if (echo->intake && !echo->intake->step()) return false;
    return go_on(echo);
}

// Where its head was looked at, and what came is sound, it is the server that failed.
bool is_our_fault(const HttpEcho *echo, bool thrown) {
    if (!echo->parser || echo->parser->fault() || echo->answering) return false;
    return echo->intake || (thrown && echo->parser->framing().has_head());
}

// A step of taking a request in. What went wrong here, for want of memory or of room for the body,
// is told to the peer; where he goes on from there isn't known.
template <class F> bool attempt(HttpEcho *echo, F step) try {
    zRaiseError(0, 0, nullptr, nullptr); // nobody's failure is taken for this peer's
    bool thrown = false;
    try {
        if (step()) return true;
    } catch (...) {
        fail_thrown();
        thrown = true;
    }
    if (!is_our_fault(echo, thrown)) return false;
    HttpResponse *response =
        raised_no_space()
            ? zHttpResponseError(__FILE__, __LINE__, echo->request, 500, u"srv.eNoSpace")
            : plain_answer(500, echo->request);
    return settle(echo, response) && begin_answer(echo, false);
} catch (...) {
    return fail_thrown();
}

bool read(Echo *base, Chunk *chunk) {
    HttpEcho *echo = echo_of(base);
    assert(echo->state == Z_ECHO_READ);
    const std::string_view bytes(static_cast<const char *>(chunk->base), chunk->size);
    const bool taken = attempt(echo, [&] { return take(echo, bytes); });
    echo->asked_at_once = echo->state == kEchoWork;
    return taken;
}

// ---- Deadlines

// A peer that sends a byte now and then keeps a connection for ever, and is never silent.
bool is_behind(const HttpEcho *echo) {
    if (!echo->parser || !echo->parser->framing().has_begun()) return false;
    const int64_t now = os::calls.steady();
    const HttpLimits &told = echo->server->limits;
    if (!echo->body_from) return now - echo->began > static_cast<int64_t>(told.head_time) * kSecond;
    const int64_t span = now - echo->body_from - limits::http_body_grace;
    if (span <= 0) return false;
    const auto seconds = static_cast<uint64_t>(span / kSecond);
    return echo->body < seconds * told.rate;
}

// While others were served what he sent may have come.
bool is_too_slow(const HttpEcho *echo) { return is_behind(echo) && !peer_waits(echo->server->tcp); }

EchoAction action(Echo *base) {
    HttpEcho *echo = echo_of(base);
    const bool works = echo->state == kEchoWork;
    if (works && std::exchange(echo->asked_at_once, false)) return kEchoWork;
    if (echo->state == kEchoLinger) stop_counting(echo);
    if (!works && echo->state != Z_ECHO_READ) return echo->state;
    if (!works && is_too_slow(echo)) return Z_ECHO_ABORT;
    if (!works && (echo->waiting.empty() || echo->parser)) return Z_ECHO_READ;
    const std::string waiting = works ? std::string() : std::exchange(echo->waiting, {});
    const bool done = attempt(echo, [&] { return works ? work(echo) : take(echo, waiting); });
    return done ? echo->state : EchoAction{Z_ECHO_ABORT};
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
        echo->state = echo->unread ? EchoAction{kEchoLinger} : EchoAction{Z_ECHO_CLOSE};
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
    if (!rewind_whole(response->body)) return false;
    if (!put_length(&response->header, response->body)) return false;
    echo->outgoing = response_head(*response, {server.timeout, server.maxconn});
    echo->left = body_size(response->body);
    if (!echo->left || echo->request->method == Z_HTTP_HEAD) {
        finish(echo);
    } else {
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

// The transport may keep the connection for a while yet.
void abort(Echo *base) try {
    HttpEcho *echo = echo_of(base);
    stop_counting(echo);
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
    echo->counted = server != nullptr;
    if (server) ++server->open;
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
    stop_counting(echo);
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
