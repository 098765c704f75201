// Connections: accepting and connecting, reading and writing as the echo says, silence, the end.
//
// States of a connection, by what libuv does for it:
//
//   opening --accepted, connected--> acting --0--> reading --bytes--> acting
//                                    acting --1, 2--> writing --written--> acting
//                                    acting --3, a client's--> paused --used again--> acting
//                                    acting --6--> working --next turn--> acting
//                                    acting --7--> lingering --end of the peer, time, bytes--> 4
//   any --4, 5, failure, silence, stop--> closing --callback--> freed
//
// A peer that still sends when its answer has left lingers: our side is shut, and what comes is
// dropped. A close would make the system answer it with a reset, which may overtake the answer.
//
// A server that is told to end lets those that are writing go on, until they would read.
//
// Only the close callback frees; after a call into the echo the connection may be closing, since
// the echo may have ended the loop.
#include "network/tcp/tcp.hpp"
#include "network/tcp/tls.hpp"

#include "common/limits.hpp"
#include "common/log_level.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/lang.h"
#include "zev/log.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstring>
#include <new>
#include <string>

namespace zev {

namespace {

constexpr unsigned kKeepaliveMax = 32767; // seconds; the system refuses more

// Of the whole process, for the log.
std::atomic<int32_t> accepted_count, closed_count;

// Whether what is to be written may leave at once: else an echo that answers again and again, and
// whose peer reads, would keep the loop's turn.
void act(TcpConnection *connection, EchoAction action, bool at_once = true);

TcpConnection *connection_of(const uv_stream_t *stream) {
    return static_cast<TcpConnection *>(stream->data);
}
uv_stream_t *stream_of(TcpConnection *connection) {
    return reinterpret_cast<uv_stream_t *>(&connection->handle);
}
uv_handle_t *handle_of(TcpConnection *connection) {
    return reinterpret_cast<uv_handle_t *>(&connection->handle);
}
// Its echo, which from now on is the one that is heard.
Echo *hear(TcpConnection *connection) {
    connection->tcp->heard = connection;
    return connection->echo;
}
bool is_closing(TcpConnection *connection) { return uv_is_closing(handle_of(connection)); }

// ---- The peer, as text

struct Peer {
    std::u16string host = u"0.0.0.0";
    uint32_t port = 0;
    bool known = false;
};

Peer peer_of(const TcpConnection *connection) {
    Peer peer;
    sockaddr_storage address;
    int size = sizeof address;
    if (uv_tcp_getpeername(&connection->handle, reinterpret_cast<sockaddr *>(&address), &size) < 0)
        return peer;
    char text[INET6_ADDRSTRLEN] = {};
    const bool old = address.ss_family == AF_INET;
    const auto *v4 = reinterpret_cast<const sockaddr_in *>(&address);
    const auto *v6 = reinterpret_cast<const sockaddr_in6 *>(&address);
    if (old ? uv_ip4_name(v4, text, sizeof text) : uv_ip6_name(v6, text, sizeof text)) return peer;
    peer.port = ntohs(old ? v4->sin_port : v6->sin6_port);
    peer.host.assign(text, text + strlen(text));
    peer.known = true;
    return peer;
}

void log_connection(const TcpConnection *connection, const zwchar *key, std::atomic<int32_t> &count,
                    Here at = {}) {
    if (!connection->tcp->server) return;
    const int32_t number = ++count;
    const Peer peer = peer_of(connection);
    const bool old = peer.host.find(u':') == peer.host.npos;
    std::u16string text = u"localhost";
    if (peer.known) {
        text = old ? peer.host : u"[" + peer.host + u"]";
        for (char digit : ":" + std::to_string(peer.port)) text += static_cast<zwchar>(digit);
    }
    zLogReport(at.file, at.line, kAccess, kFacilitySrv, u"%s",
               zI18nTextFormat(zI18nCurrentLang(), key, text.c_str(), number));
}

// ---- Accounting

void add(Time &sum, int64_t nanoseconds) { sum = time_of(nanoseconds_of(sum) + nanoseconds); }

double seconds(const Time &span) {
    return static_cast<double>(nanoseconds_of(span)) / static_cast<double>(kSecond);
}

// One direction of a usage record.
struct Direction {
    uint64_t &bytes;
    Time &time;
    uint64_t &total;
    Time &total_time;
    uint64_t &speed;
    uint64_t &average;
    double threshold; // seconds after which an interval is closed

    void account(TransferUsage &usage, uint64_t count) {
        const int64_t now = os::calls.now();
        add(time, std::max<int64_t>(now - nanoseconds_of(usage.last), 0)); // it may be set back
        bytes += count;
        usage.last = time_of(now);
        if (seconds(time) > threshold) close();
    }

    void close() {
        speed = static_cast<uint64_t>(static_cast<double>(bytes) / seconds(time));
        total += bytes;
        add(total_time, nanoseconds_of(time));
        average = static_cast<uint64_t>(static_cast<double>(total) / seconds(total_time));
        bytes = 0;
        time = {};
    }
};

void account_read(TransferUsage &u, uint64_t count) {
    Direction{u.read_bytes, u.read_time,          u.total_read, u.total_read_time,
              u.read_speed, u.average_read_speed, 0.0}
        .account(u, count);
}

void account_write(TransferUsage &u, uint64_t count) {
    Direction{
        u.write_bytes,         u.write_time, u.total_written, u.total_write_time, u.write_speed,
        u.average_write_speed, 1.0}
        .account(u, count);
}

// ---- Silence

bool has_bytes_waiting(TcpConnection *connection) {
    int descriptor = -1;
    if (uv_fileno(handle_of(connection), &descriptor) < 0) return false;
    return os::socket_wait(descriptor, false, 0) == 1;
}

// The loop's time is that of its last turn: a request may have been at work since, which is no
// silence of the peer's.
void rearm(TcpConnection *connection) {
    if (!connection->timer) return;
    Tcp *tcp = connection->tcp;
    uv_update_time(tcp->loop);
    uv_timer_set_repeat(connection->timer, tcp->timeout);
    if (tcp->timeout) {
        uv_timer_again(connection->timer);
    } else {
        uv_timer_stop(connection->timer);
    }
}

void drop_timer(TcpConnection *connection) {
    if (uv_timer_t *timer = std::exchange(connection->timer, nullptr)) timer_close(timer);
}

void end(TcpConnection *connection, bool cut);

void on_silence(uv_timer_t *timer) {
    auto *connection = static_cast<TcpConnection *>(timer->data);
    if (connection->lingering) return end(connection, false); // it was heard out
    if (connection->working) return rearm(connection);        // it waits for us
    // While another's request was at work this one's bytes may have come.
    if (connection->reading && has_bytes_waiting(connection)) return rearm(connection);
    connection->timer = nullptr;
    timer->data = nullptr;
    connection->tcp->last_error = UV_ETIMEDOUT;
    fail_uv(UV_ETIMEDOUT, nullptr);
    connection_cut(connection);
    timer_close(timer);
}

// ---- The end

void on_closed(uv_handle_t *handle) {
    auto *connection = static_cast<TcpConnection *>(handle->data);
    if (connection->echo) {
        connection->cut ? zEchoAbort(connection->echo) : zEchoClose(connection->echo);
        if (connection->tcp->server) zEchoFree(connection->echo);
    }
    drop_timer(connection);
    if (connection->working) std::erase(connection->tcp->working, connection);
    if (connection->lingering)
        std::ranges::replace(connection->tcp->lingering, connection, nullptr);
    if (connection->tcp->connection == connection) connection->tcp->connection = nullptr;
    if (connection->tcp->heard == connection) connection->tcp->heard = nullptr;
    delete connection;
}

void end(TcpConnection *connection, bool cut) {
    if (is_closing(connection)) return;
    log_connection(connection, u"srv.sConnectionClosed_s_d", closed_count);
    connection->cut = cut;
    uv_close(handle_of(connection), on_closed);
}

void fail_and_cut(TcpConnection *connection, int code, const zwchar *key, Here at = {}) {
    fail_uv(code, net_text(key), at);
    connection_cut(connection);
}

// ---- Reading

// No room for what is not wanted: it waits in the system.
void lend_block(uv_handle_t *handle, size_t, uv_buf_t *buffer) {
    const auto *connection = static_cast<TcpConnection *>(handle->data);
    auto &block = connection->tcp->block;
    const bool wanted = connection->reading || connection->lingering;
    *buffer = uv_buf_init(block.data(), wanted ? static_cast<unsigned>(block.size()) : 0);
}

void stop_watching(TcpConnection *connection) {
    uv_read_stop(stream_of(connection));
    connection->watched = false;
}

// Most answers leave before anything else comes: to tell the system each time would take as long as
// reading and writing. A client's loop runs dry only when it watches nothing.
void stop_reading(TcpConnection *connection) {
    connection->reading = false;
    if (!connection->tcp->server) stop_watching(connection);
}

void on_read(uv_stream_t *stream, ssize_t count, const uv_buf_t *buffer) {
    TcpConnection *connection = connection_of(stream);
    if (!connection->reading) return stop_watching(connection);
    if (count < 0) {
        stop_reading(connection);
        stop_watching(connection);
        if (count == UV_EOF) return end(connection, false);
        return fail_and_cut(connection, static_cast<int>(count), u"net.eCannotReadFromConnection");
    }
    account_read(connection->tcp->usage, static_cast<uint64_t>(count));
    EchoAction action = Z_ECHO_READ;
    if (count > 0) { // a parser would take nothing for the end
        Chunk chunk{};
        zChunkInit(&chunk, buffer->base, static_cast<uint64_t>(count));
        Echo *echo = hear(connection);
        action = zEchoRead(echo, &chunk) ? zEchoAction(echo) : EchoAction{Z_ECHO_ABORT};
        if (is_closing(connection)) return;
    }
    if (action == Z_ECHO_READ) return rearm(connection);
    stop_reading(connection);
    act(connection, action);
}

void start_reading(TcpConnection *connection) {
    const int code =
        connection->watched ? 0 : uv_read_start(stream_of(connection), lend_block, on_read);
    if (code < 0) return fail_and_cut(connection, code, u"net.eCannotReadFromConnection");
    connection->reading = connection->watched = true;
    rearm(connection);
}

// ---- Writing

// With what the echo wants now that all has left.
void go_on(TcpConnection *connection, bool at_once) {
    connection->buffer = {};
    if (is_closing(connection)) return;
    const EchoAction action = zEchoAction(hear(connection));
    if (!is_closing(connection)) act(connection, action, at_once);
}

void on_written(uv_write_t *request, int status) {
    auto *connection = static_cast<TcpConnection *>(request->data);
    connection->writing = false;
    const size_t count = std::exchange(connection->buffer, {}).len;
    if (status < 0) {
        if (is_closing(connection)) return; // cancelled by the end
        return fail_and_cut(connection, status, u"net.eCannotWriteToConnection");
    }
    account_write(connection->tcp->usage, count);
    go_on(connection, true);
}

// As much as the system takes. Most answers are one small piece, for which it need not be watched
// whether there is room. False when it is cut.
bool write_now(TcpConnection *connection) {
    uv_buf_t &buffer = connection->buffer;
    const int code = uv_try_write(stream_of(connection), &buffer, 1);
    if (code == UV_EAGAIN) return true;
    if (code < 0) return fail_and_cut(connection, code, u"net.eCannotWriteToConnection"), false;
    const auto count = static_cast<size_t>(code);
    account_write(connection->tcp->usage, count);
    buffer = uv_buf_init(buffer.base + count, static_cast<unsigned>(buffer.len - count));
    return true;
}

void start_writing(TcpConnection *connection, bool head, bool at_once) {
    assert(!connection->reading);
    Chunk chunk{};
    Echo *echo = connection->echo;
    const bool filled = head ? zEchoWrHeader(echo, &chunk) : zEchoWrBody(echo, &chunk);
    if (is_closing(connection)) return;
    if (!filled || chunk.size > UINT32_MAX) return connection_cut(connection);
    connection->buffer =
        uv_buf_init(static_cast<char *>(chunk.base), static_cast<unsigned>(chunk.size));
    if (head && at_once) {
        if (!write_now(connection)) return;
        if (!connection->buffer.len) return go_on(connection, false);
    }
    connection->write.data = connection;
    const int code =
        uv_write(&connection->write, stream_of(connection), &connection->buffer, 1, on_written);
    if (code < 0) return fail_and_cut(connection, code, u"net.eCannotWriteToConnection");
    connection->writing = true;
    rearm(connection);
}

// ---- Working

void start_working(TcpConnection *connection) {
    Tcp *tcp = connection->tcp;
    if (std::exchange(connection->working, true)) return;
    tcp->working.push_back(connection);
    uv_idle_start(&tcp->turn, connections_work);
    rearm(connection); // what takes time here is no silence of the peer's
}

// ---- Lingering

void on_dropped(uv_stream_t *stream, ssize_t count, const uv_buf_t *) {
    TcpConnection *connection = connection_of(stream);
    const uint64_t left = connection->linger_left;
    if (count < 0 || static_cast<uint64_t>(count) >= left) return end(connection, false);
    connection->linger_left = left - static_cast<uint64_t>(count);
}

void start_lingering(TcpConnection *connection) {
    constexpr uint64_t kTime = limits::http_linger_time / (kSecond / 1000);
    uv_stream_t *stream = stream_of(connection);
    drop_timer(connection);
    stop_watching(connection);
    Tcp *tcp = connection->tcp;
    TcpConnection *&place = tcp->lingering[tcp->next_place++ % tcp->lingering.size()];
    if (place) end(place, false);
    place = connection;
    connection->lingering = true;
    connection->linger_left = limits::http_linger_bytes;
    if (!connection_start_timer(connection, kTime) ||
        uv_shutdown(&connection->shutdown, stream, [](uv_shutdown_t *, int) {}) < 0 ||
        uv_read_start(stream, lend_block, on_dropped) < 0)
        end(connection, false);
}

// ---- What the echo wants

void act(TcpConnection *connection, EchoAction action, bool at_once) {
    switch (action) {
    case Z_ECHO_READ:
        if (connection->tcp->draining) return end(connection, false);
        return start_reading(connection);
    case Z_ECHO_WRBODY: // a client's that was answered already has said enough
        if (!connection->tcp->server && has_bytes_waiting(connection))
            return start_reading(connection);
        [[fallthrough]];
    case Z_ECHO_WRHEADER:
        return start_writing(connection, action == Z_ECHO_WRHEADER, at_once);
    case Z_ECHO_PAUSE: // a server's connection has no other exchange to wait for
        if (!connection->tcp->server) drop_timer(connection);
        return;
    case Z_ECHO_CLOSE:
        return end(connection, false);
    case kEchoWork:
        return start_working(connection);
    case kEchoLinger:
        return start_lingering(connection);
    default:
        return connection_cut(connection);
    }
}

// What both ends set: a peer that vanished is noticed, small answers leave at once. A system
// that refuses a delay does so without harm.
void set_options(TcpConnection *connection) {
    const uint64_t timeout = connection->tcp->timeout;
    const uint64_t delay =
        timeout ? std::min<uint64_t>(timeout / 1000 + 1, kKeepaliveMax) : kKeepaliveMax;
    const int code = uv_tcp_keepalive(&connection->handle, 1, static_cast<unsigned>(delay));
    if (code < 0) fail_uv(code, nullptr);
    uv_tcp_nodelay(&connection->handle, 1);
}

// Takes the waiting socket off the listener and lets it go: else the listener would stand still.
void turn_away(uv_stream_t *listener) {
    auto *handle = new (std::nothrow) uv_tcp_t;
    if (!handle) return;
    uv_tcp_init(listener->loop, handle);
    handle->data = nullptr;
    uv_accept(listener, reinterpret_cast<uv_stream_t *>(handle));
    uv_close(reinterpret_cast<uv_handle_t *>(handle),
             [](uv_handle_t *closed) { delete reinterpret_cast<uv_tcp_t *>(closed); });
}

} // namespace

// ---- Opening

TcpConnection *connection_new(Tcp *tcp, Echo *echo, const zwchar *message) {
    auto *connection = new (std::nothrow) TcpConnection{};
    if (!connection) return fail_memory();
    connection->tcp = tcp;
    connection->echo = echo;
    if (const int code = uv_tcp_init_ex(tcp->loop, &connection->handle, 0); code < 0) {
        delete connection;
        return fail_uv(code, message);
    }
    connection->handle.data = connection;
    return connection;
}

void on_connection(uv_stream_t *listener, int status) {
    auto *tcp = static_cast<Tcp *>(listener->data);
    const zwchar *refused = net_text(u"srv.eFailedToAcceptTcpConnect");
    if (status < 0) return static_cast<void>(fail_uv(status, refused));
    Echo *echo = zEchoDup(tcp->echo);
    if (!echo) return turn_away(listener);
    TcpConnection *connection = connection_new(tcp, echo, refused);
    if (!connection) return zEchoFree(echo), turn_away(listener);
    int code = uv_accept(listener, stream_of(connection));
    if (!code) {
        log_connection(connection, u"srv.sConnectionAccepted_s_d", accepted_count);
        set_options(connection);
        code = connection_start_timer(connection, tcp->timeout) ? 0 : UV_ENOMEM;
    }
    if (code < 0) return fail_and_cut(connection, code, u"srv.eFailedToAcceptTcpConnect");
    const EchoAction action = zEchoAction(echo);
    if (action > Z_ECHO_WRBODY) return fail_and_cut(connection, UV_ENOTSUP, nullptr);
    act(connection, action);
}

void on_connected(uv_connect_t *request, int status) {
    auto *connection = static_cast<TcpConnection *>(request->data);
    if (status < 0) {
        if (is_closing(connection)) return; // cancelled by the end
        const Peer peer = peer_of(connection);
        fail_uv(status, net_text(u"net.eFailedToConnectServer_s_d", peer.host.c_str(), peer.port));
        return connection_cut(connection);
    }
    set_options(connection);
    rearm(connection);
    act(connection, zEchoAction(connection->echo));
}

bool connection_start_timer(TcpConnection *connection, uint64_t milliseconds) {
    if (connection->timer) return raise_uv(UV_EINVAL);
    if (!milliseconds) return true;
    auto *timer = new (std::nothrow) uv_timer_t;
    if (!timer) return fail_memory();
    uv_timer_init(connection->tcp->loop, timer); // never fails
    uv_update_time(connection->tcp->loop);
    uv_timer_start(timer, on_silence, milliseconds, milliseconds);
    timer->data = connection;
    connection->timer = timer;
    return true;
}

// A peer that has something to say before it was asked has gone, or answers what nobody waits for.
void connection_resume(TcpConnection *connection) {
    if (has_bytes_waiting(connection)) return end(connection, false);
    Tcp *tcp = connection->tcp;
    if (!connection->timer && !connection_start_timer(connection, tcp->timeout))
        return connection_cut(connection);
    on_connected(&tcp->connecting, 0);
}

void timer_close(uv_timer_t *timer) {
    timer->data = nullptr;
    auto *handle = reinterpret_cast<uv_handle_t *>(timer);
    if (uv_is_closing(handle)) return;
    uv_close(handle, [](uv_handle_t *closed) { delete reinterpret_cast<uv_timer_t *>(closed); });
}

void connection_cut(TcpConnection *connection) { end(connection, true); }

void connection_drain(TcpConnection *connection) {
    if (!connection->writing && !connection->working) end(connection, true);
}

// Each once a turn, whoever joins meanwhile in the next.
void connections_work(uv_idle_t *turn) {
    auto *tcp = static_cast<Tcp *>(turn->data);
    const std::vector<TcpConnection *> working = std::exchange(tcp->working, {});
    uv_idle_stop(turn);
    for (TcpConnection *connection : working) {
        connection->working = false;
        if (!is_closing(connection)) act(connection, zEchoAction(hear(connection)));
    }
}

// While something is being written the echo's answer is what comes after it: only a cut counts.
// A server's echo is not asked then: it would go on to what came behind, and a cut for that would
// take the rest of the answer along.
void connection_look(TcpConnection *connection) {
    if (is_closing(connection) || (connection->tcp->server && connection->writing)) return;
    const EchoAction action = zEchoAction(hear(connection));
    if (is_closing(connection)) return;
    if (action != Z_ECHO_ABORT && !(connection->reading && action == Z_ECHO_CLOSE)) return;
    if (connection->reading) stop_reading(connection);
    act(connection, action);
}

namespace {

bool is_ours(const Tcp *tcp) {
    return tcp && (tcp->head.table == zTcpClass() || tcp->head.table == tls_class());
}

} // namespace

bool peer_waits(const Loop *loop) {
    const auto *tcp = reinterpret_cast<const Tcp *>(loop);
    return is_ours(tcp) && tcp->heard && has_bytes_waiting(tcp->heard);
}

std::u16string peer_address(const Loop *loop) {
    const auto *tcp = reinterpret_cast<const Tcp *>(loop);
    if (!is_ours(tcp) || !tcp->heard) return {};
    const Peer peer = peer_of(tcp->heard);
    return peer.known ? peer.host : std::u16string();
}

// ---- Failures

namespace {
Failure logged_net(Here at) {
    zLogReport(at.file, at.line, kError, kFacilityNet, u"%s", zErrorDetail());
    return {};
}
} // namespace

Failure fail_uv(int code, const zwchar *message, Here at) {
    raise_uv(code, message);
    return logged_net(at);
}

Failure fail_resolver(int code, const zwchar *message, Here at) {
    raise_socket(code, message);
    return logged_net(at);
}

const zwchar *net_text(const zwchar *key) {
    return key ? zI18nTextLookup(zI18nCurrentLang(), key) : nullptr;
}

const zwchar *net_text(const zwchar *key, const zwchar *host, uint32_t port) {
    return zI18nTextFormat(zI18nCurrentLang(), key, host, static_cast<int32_t>(port));
}

} // namespace zev
