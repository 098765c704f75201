// TLS over the transport of TCP. The loop is that of tcp.cpp. Its end of a connection, a TlsEcho,
// stands before the one that speaks HTTP: what arrives goes into one memory BIO and comes out as
// that one's bytes; what that one says leaves through another, a chunk at a time, which is asked
// for when the last was written. So neither ever holds more than a block, or a chunk.
//
// States of an end, seen from the transport:
//
//   shaking --done--> open --inner: 4, 7; peer: close_notify--> saying so --> 4, 7
//   shaking, open --failure--> failed: its alert is sent, then 5, or 7 of a server's
//
// While open, what the inner end wants is what is asked of the transport, but for records of TLS'
// own that have to leave first, as a write of their own.
//
// An end of the connection that the peer did not tell by close_notify may have been brought about
// by anybody on the way: a client takes what it has by then for cut.
#include "network/tcp/tls.hpp"

#include "network/tcp/tcp.hpp"
#include "network/tcp/tls_context.hpp"

#include "common/limits.hpp"
#include "common/log_level.hpp"
#include "common/utf.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/lang.h"
#include "zev/log.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include <openssl/err.h>

namespace zev {

namespace {

// The largest record as it travels, of which all but the last byte may be waiting for it.
constexpr size_t kRecord = SSL3_RT_MAX_ENCRYPTED_LENGTH + SSL3_RT_HEADER_LENGTH;
constexpr size_t kHeld = kReadBlock + 2 * kRecord; // of what arrived, before it is looked at
constexpr size_t kSlice = 256 * 1024;              // of a chunk, sealed in one go
constexpr size_t kKeptBuffer = 4096;               // of a BIO whose connection is silent
// From the connection to the end of its handshake, as for a head: nobody needs that long.
constexpr int64_t kShakeTime = limits::http_head_time;

struct TlsEcho;

// What the ends of one loop share; it lives in the loop's own.
struct TlsLoop {
    std::mutex guard;   // of the context, which another thread may put another in place of
    TlsContext context; // each session keeps the one that it began with
    Tcp *tcp = nullptr;
    std::string host;              // a client's, of the connection that was last asked for
    TlsReason refused{};           // why that one will not be: to ask again would not help
    std::array<char, kHeld> block; // what was opened last: one serves all
};

struct TlsEcho {
    Echo head;
    TlsLoop *loop;
    Echo *inner; // owned by a server's connection, else lent
    bool owns;
    TlsSession session; // made when it is first asked
    BIO *in, *out;      // the session's
    Chunk plain;        // the inner's, while it is being sealed
    size_t sealed;      // bytes of it
    EchoAction wanted;  // of the inner, when it was last asked
    int64_t began;      // by os::calls.steady
    bool open;          // the handshake is done
    bool handed;        // what is in `out` is with the transport, or was written
    bool held;          // `in` has what came before it was wanted
    bool flushing;      // the last words were asked for
    bool peer_ended;
    bool ended; // by ourselves
    bool failed;
    bool parted; // the inner one was told of the end
};

// The loop's own end: a server's prototype, a client's only one. It goes with the loop.
struct OwnEcho : TlsEcho {
    TlsLoop shared;
};

TlsEcho *tls_of(Echo *echo) { return reinterpret_cast<TlsEcho *>(echo); }
OwnEcho *own_of(Loop *loop) {
    return static_cast<OwnEcho *>(tls_of(reinterpret_cast<Tcp *>(loop)->echo));
}
bool is_server(const TlsEcho *echo) { return echo->loop->tcp->server; }
// The transport's record of it, where it is the one that is heard.
const TcpConnection *connection_of(const TlsEcho *echo) {
    const TcpConnection *heard = echo->loop->tcp->heard;
    return heard && heard->echo == &echo->head ? heard : nullptr;
}

// ---- Failures

std::u16string peer_of(const TlsEcho *echo) {
    if (!is_server(echo)) return to_wide(echo->loop->host);
    return peer_address(&echo->loop->tcp->head);
}

void raise_reason(const TlsEcho *echo, const TlsReason &reason) {
    raise_net(reason.code, zI18nTextFormat(zI18nCurrentLang(), u"net.eTlsFailed_s_s",
                                           peer_of(echo).c_str(), to_wide(reason.text).c_str()));
}

// A client that was refused is told so; to a server those who are no clients are no error.
void fail(TlsEcho *echo, const TlsReason &reason, Here at = {}) {
    echo->failed = true;
    raise_reason(echo, reason);
    log_raised(is_server(echo) ? kNotice : kError, at, kFacilityNet);
    if (!is_server(echo) && !echo->open) echo->loop->refused = reason;
}

void fail_session(TlsEcho *echo, Here at = {}) { fail(echo, tls_reason(echo->session.get()), at); }

// ---- The session

TlsSession new_session(TlsLoop &loop) {
    const std::lock_guard lock(loop.guard);
    return TlsSession(SSL_new(loop.context.get()));
}

bool begin(TlsEcho *echo) {
    TlsSession session = new_session(*echo->loop);
    BIO *in = BIO_new(BIO_s_mem()), *out = BIO_new(BIO_s_mem());
    if (!session || !in || !out) {
        BIO_free(in);
        BIO_free(out);
        return fail_memory();
    }
    SSL_set_bio(session.get(), in, out);
    if (is_server(echo)) {
        SSL_set_accept_state(session.get());
    } else {
        SSL_set_connect_state(session.get());
        if (!tls_expect(session.get(), echo->loop->host)) return fail_args();
    }
    echo->session = std::move(session);
    echo->in = in;
    echo->out = out;
    echo->began = os::calls.steady();
    return true;
}

// For the next connection.
void reset(TlsEcho *echo) {
    zChunkCleanup(&echo->plain);
    echo->session.reset();
    echo->in = echo->out = nullptr;
    echo->sealed = 0;
    echo->wanted = Z_ECHO_READ;
    echo->open = echo->handed = echo->held = echo->flushing = false;
    echo->peer_ended = echo->ended = echo->failed = echo->parted = false;
}

void shake(TlsEcho *echo) {
    if (echo->open || echo->failed) return;
    ERR_clear_error();
    const int done = SSL_do_handshake(echo->session.get());
    echo->open = done == 1;
    if (!echo->open && SSL_get_error(echo->session.get(), done) != SSL_ERROR_WANT_READ)
        fail_session(echo);
}

// What fills a BIO once would be kept by each of many silent connections.
void shrink(BIO *bio) {
    BUF_MEM *memory = nullptr;
    BIO_get_mem_ptr(bio, &memory);
    if (!memory || memory->length || memory->max <= kKeptBuffer) return;
    if (BUF_MEM *fresh = BUF_MEM_new()) BIO_set_mem_buf(bio, fresh, BIO_CLOSE);
}

// ---- Opening what arrives

// Bytes that could be opened; what ends or breaks the stream is kept for the next question.
size_t open_records(TlsEcho *echo) {
    auto &block = echo->loop->block;
    size_t size = 0, count = 0;
    ERR_clear_error();
    while (size < block.size() &&
           SSL_read_ex(echo->session.get(), &block[size], block.size() - size, &count))
        size += count;
    if (size == block.size()) return echo->held = true, size;
    const int error = SSL_get_error(echo->session.get(), 0);
    if (error == SSL_ERROR_ZERO_RETURN) {
        echo->peer_ended = true;
    } else if (error != SSL_ERROR_WANT_READ) {
        fail_session(echo);
    }
    return size;
}

bool hand_over(TlsEcho *echo) {
    echo->held = false;
    const size_t size = open_records(echo);
    if (!size) return true;
    Chunk chunk{};
    zChunkInit(&chunk, echo->loop->block.data(), size);
    return zEchoRead(echo->inner, &chunk);
}

// What a client is told before it has asked waits until it wants to hear.
bool read(Echo *base, Chunk *chunk) try {
    TlsEcho *echo = tls_of(base);
    if (!echo->session) return false;
    if (echo->failed) return true;
    if (BIO_ctrl_pending(echo->in) + chunk->size > kHeld) return false;
    if (BIO_write(echo->in, chunk->base, static_cast<int>(chunk->size)) <= 0) return fail_memory();
    const bool asked = echo->open || is_server(echo);
    shake(echo);
    if (!echo->open) return true;
    if (asked) return hand_over(echo);
    echo->held = BIO_pending(echo->in) > 0;
    return true;
} catch (...) {
    return fail_thrown();
}

// ---- What comes next

bool is_pending(const TlsEcho *echo) { return BIO_pending(echo->out) > 0; }

// Last words, then the end that was asked for. Who is asked again although they are still there
// is not going to be given them.
EchoAction end(TlsEcho *echo, EchoAction how) {
    if (is_pending(echo) && !std::exchange(echo->flushing, true)) return Z_ECHO_WRBODY;
    echo->ended = true;
    return how;
}

EchoAction say_end(TlsEcho *echo, EchoAction how) {
    const bool said = SSL_get_shutdown(echo->session.get()) & SSL_SENT_SHUTDOWN;
    if (!said) {
        ERR_clear_error();
        SSL_shutdown(echo->session.get());
    }
    return end(echo, how);
}

// Whoever is only heard out after that takes no other's place among a server's connections.
EchoAction end_failed(TlsEcho *echo) {
    if (!is_server(echo)) return end(echo, Z_ECHO_ABORT);
    if (!std::exchange(echo->parted, true)) zEchoAbort(echo->inner);
    return end(echo, kEchoLinger);
}

EchoAction action_of_handshake(TlsEcho *echo) {
    if (os::calls.steady() - echo->began > kShakeTime) {
        fail(echo, {UV_ETIMEDOUT, "the handshake took too long"});
        return Z_ECHO_ABORT;
    }
    return is_pending(echo) ? Z_ECHO_WRBODY : Z_ECHO_READ;
}

EchoAction action(Echo *base);

EchoAction action_of_silence(TlsEcho *echo, EchoAction wanted) {
    if (is_pending(echo)) return Z_ECHO_WRBODY;
    if (echo->peer_ended) return say_end(echo, Z_ECHO_CLOSE);
    if (const TcpConnection *connection = connection_of(echo);
        wanted == Z_ECHO_PAUSE || (connection && connection->reading)) {
        shrink(echo->in);
        shrink(echo->out);
    }
    return wanted;
}

EchoAction action_of_open(TlsEcho *echo, EchoAction wanted) {
    if (echo->sealed < echo->plain.size) return Z_ECHO_WRBODY;
    echo->wanted = wanted;
    switch (wanted) {
    case Z_ECHO_READ:
        if (!echo->held) return action_of_silence(echo, wanted);
        return hand_over(echo) ? action(&echo->head) : EchoAction{Z_ECHO_ABORT};
    case Z_ECHO_WRHEADER:
    case Z_ECHO_WRBODY: // nobody answers a client any more
        if (echo->peer_ended && !is_server(echo)) return say_end(echo, Z_ECHO_CLOSE);
        return wanted;
    case Z_ECHO_PAUSE:
        return action_of_silence(echo, wanted);
    case Z_ECHO_CLOSE:
    case kEchoLinger:
        return say_end(echo, wanted);
    default:
        return wanted;
    }
}

// While something is being written nothing is touched: the transport has our memory.
EchoAction action(Echo *base) try {
    TlsEcho *echo = tls_of(base);
    const EchoAction wanted = echo->parted ? EchoAction{kEchoLinger} : zEchoAction(echo->inner);
    if (wanted == Z_ECHO_ABORT) return Z_ECHO_ABORT;
    if (!echo->session && !begin(echo)) return Z_ECHO_ABORT;
    const TcpConnection *connection = connection_of(echo);
    if (connection && connection->writing) return Z_ECHO_WRBODY;
    if (std::exchange(echo->handed, false)) BIO_reset(echo->out);
    shake(echo);
    if (echo->failed) return end_failed(echo);
    return echo->open ? action_of_open(echo, wanted) : action_of_handshake(echo);
} catch (...) {
    return fail_thrown(), Z_ECHO_ABORT;
}

// ---- Sealing what leaves

bool seal(TlsEcho *echo) {
    const size_t size = std::min<size_t>(echo->plain.size - echo->sealed, kSlice);
    const char *bytes = static_cast<const char *>(echo->plain.base) + echo->sealed;
    ERR_clear_error();
    size_t done = 0;
    if (size && !SSL_write_ex(echo->session.get(), bytes, size, &done))
        return fail_session(echo), false;
    echo->sealed += size;
    if (echo->sealed < echo->plain.size) return true;
    zChunkCleanup(&echo->plain);
    echo->sealed = 0;
    return true;
}

// Records of our own that wait go before what the inner end says.
bool write(Echo *base, Chunk *chunk) try {
    TlsEcho *echo = tls_of(base);
    zChunkSet(chunk, nullptr, 0);
    if (std::exchange(echo->handed, false)) BIO_reset(echo->out);
    const EchoAction wanted = std::exchange(echo->wanted, EchoAction{Z_ECHO_READ});
    const bool speaks = echo->open && !echo->failed && !echo->flushing;
    if (speaks && !echo->plain.size) {
        if (wanted == Z_ECHO_WRHEADER && !zEchoWrHeader(echo->inner, &echo->plain)) return false;
        if (wanted == Z_ECHO_WRBODY && !zEchoWrBody(echo->inner, &echo->plain)) return false;
    }
    if (speaks && !seal(echo)) return false;
    char *bytes = nullptr;
    const auto size = static_cast<uint64_t>(BIO_get_mem_data(echo->out, &bytes));
    echo->handed = true;
    return zChunkInit(chunk, bytes, size);
} catch (...) {
    return fail_thrown();
}

// ---- The end of a connection

// Whether the peer, or somebody between, cut off what a client was being told.
bool is_cut_off(const TlsEcho *echo) {
    return !is_server(echo) && echo->session && !echo->ended && !echo->peer_ended &&
           echo->wanted != Z_ECHO_PAUSE;
}

void abort(Echo *base) {
    TlsEcho *echo = tls_of(base);
    reset(echo);
    zEchoAbort(echo->inner);
}

void close(Echo *base) {
    TlsEcho *echo = tls_of(base);
    if (!echo->failed && is_cut_off(echo)) fail(echo, {UV_EOF, "the connection was cut off"});
    if (echo->failed) {
        const KeptFailure kept;
        return abort(base);
    }
    reset(echo);
    zEchoClose(echo->inner);
}

void release(Echo *base) {
    TlsEcho *echo = tls_of(base);
    reset(echo);
    if (!echo->owns) return;
    zEchoFree(echo->inner);
    delete echo;
}

Echo *dup(Echo *base) {
    const TlsEcho *from = tls_of(base);
    auto *echo = new (std::nothrow) TlsEcho{};
    if (!echo) return fail_memory();
    echo->head = from->head;
    echo->loop = from->loop;
    echo->owns = true;
    echo->inner = zEchoDup(from->inner);
    if (echo->inner) return &echo->head;
    delete echo;
    return nullptr;
}

constexpr EchoClass kEcho = {
    .New = [](va_list) -> Echo * { return fail_args(); }, // there is none without a loop
    .Dup = dup,
    .Free = release,
    .Action = action,
    .Read = read,
    .WrHeader = write,
    .WrBody = write,
    .Close = close,
    .Abort = abort,
};

// ---- The loop

Loop *new_loop(Echo *inner, uint32_t backlog, uint64_t timeout) {
    if (!inner) return fail_args();
    auto *own = new (std::nothrow) OwnEcho{};
    if (!own) return fail_memory();
    own->head.table = &kEcho;
    own->loop = &own->shared;
    own->inner = inner;
    Loop *loop = zTcpNew(&own->head, backlog, timeout);
    if (!loop) return delete own, nullptr;
    loop->table = tls_class();
    own->shared.tcp = reinterpret_cast<Tcp *>(loop);
    return loop;
}

void free_loop(Loop *loop) {
    if (!loop) return;
    OwnEcho *own = own_of(loop);
    zTcpFree(loop);
    reset(own);
    delete own;
}

bool listen(Loop *loop, const zwchar *host, uint32_t port) {
    if (!loop || !own_of(loop)->shared.context) return fail_args();
    return zTcpListen(loop, host, port);
}

bool connect(Loop *loop, const zwchar *host, uint32_t port) try {
    if (!loop || !host) return fail_args();
    OwnEcho *own = own_of(loop);
    if (!own->shared.context) own->shared.context = tls_client_context();
    if (!own->shared.context) return false;
    reset(own);
    own->shared.host = to_utf8(host);
    own->shared.refused = {};
    return zTcpConnect(loop, host, port);
} catch (...) {
    return fail_thrown();
}

// Who is not trusted now will not be by a second connection.
bool once(Loop *loop) try {
    if (!loop) return fail_args();
    const bool done = zTcpOnce(loop);
    OwnEcho *own = own_of(loop);
    if (own->shared.refused.text.empty()) return done;
    raise_reason(own, std::exchange(own->shared.refused, {}));
    return false;
} catch (...) {
    return fail_thrown();
}

constexpr LoopClass kTls = {
    .New = new_loop,
    .Free = free_loop,
    .Listen = listen,
    .Connect = connect,
    .Run = zTcpRun,
    .Once = once,
    .Alive = zTcpAlive,
    .Usage = zTcpUsage,
    .Close = zTcpClose,
};

} // namespace

const LoopClass *tls_class() { return &kTls; }

bool tls_set_identity(Loop *loop, const zwchar *certificate, const zwchar *key) try {
    if (!loop || loop->table != &kTls || !certificate || !key) return fail_args();
    TlsContext made = tls_server_context(certificate, key);
    if (!made) return false;
    TlsLoop &shared = own_of(loop)->shared;
    const std::lock_guard lock(shared.guard);
    shared.context.swap(made);
    return true;
} catch (...) {
    return fail_thrown();
}

} // namespace zev
