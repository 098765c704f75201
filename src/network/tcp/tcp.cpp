// The transport's loop: opened by listening or connecting, turned by its thread, ended by a walk
// over all that libuv holds. A server may be ended from another thread, which only wakes the
// loop's own: libuv's loop is not to be touched from outside. It goes in two steps: what stands
// still ends at once, answers on their way get some seconds.
#include "network/tcp/tcp.hpp"

#include "common/limits.hpp"
#include "common/log_level.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/lang.h"
#include "zev/log.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>
#include <utility>

#include <netdb.h>

using namespace zev;

namespace {

Tcp *tcp_of(Loop *loop) { return loop ? reinterpret_cast<Tcp *>(loop) : nullptr; }

// ---- Addresses

struct Address {
    sockaddr_storage storage{};
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage); }
};

// The first address of the older family, which a name like localhost has beside others, else the
// first of any. 0, or the resolver's code.
int resolve(Address *out, const zwchar *host, uint32_t port) {
    addrinfo *list = nullptr;
    const int code = os::resolve(host, port, &list);
    if (code || !list) return code ? code : EAI_NONAME;
    const addrinfo *best = list;
    for (const addrinfo *each = list; each && best->ai_family != AF_INET; each = each->ai_next)
        if (each->ai_family == AF_INET) best = each;
    memcpy(&out->storage, best->ai_addr, best->ai_addrlen);
    freeaddrinfo(list);
    return 0;
}

// ---- The loop

// Turns the loop until nothing is alive in it, or libuv fails.
int turn(Tcp *tcp, uv_run_mode mode) {
    const os::SigpipeGuard guard; // libuv writes without asking that no signal comes of it
    tcp->turning = true;
    int code;
    while ((code = uv_run(tcp->loop, mode)) > 0) {
    }
    tcp->turning = false;
    return code;
}

void close_plainly(uv_handle_t *handle) { uv_close(handle, nullptr); }

// Ends whatever the loop holds. Connections and their timers have close callbacks that free them.
void close_all(Tcp *tcp) {
    uv_walk(
        tcp->loop,
        [](uv_handle_t *handle, void *context) {
            auto *tcp = static_cast<Tcp *>(context);
            if (uv_is_closing(handle)) return;
            const bool ours = handle == reinterpret_cast<uv_handle_t *>(&tcp->listener) ||
                              handle == reinterpret_cast<uv_handle_t *>(&tcp->look) ||
                              handle == reinterpret_cast<uv_handle_t *>(&tcp->last_call);
            if (handle->type == UV_TCP && !ours && handle->data)
                return connection_cut(static_cast<TcpConnection *>(handle->data));
            if (handle->type != UV_TIMER || ours) return close_plainly(handle);
            if (auto *connection = static_cast<TcpConnection *>(handle->data))
                connection->timer = nullptr;
            timer_close(reinterpret_cast<uv_timer_t *>(handle));
        },
        tcp);
}

// From now on nobody wakes the loop.
void end_stopping(Tcp *tcp) {
    const std::lock_guard lock(tcp->mutex);
    tcp->stoppable = false;
}

// No more connections; those that are left end by themselves, or by the last call.
void drain(Tcp *tcp) {
    if (std::exchange(tcp->draining, true)) return;
    uv_update_time(tcp->loop);
    const auto cut = [](uv_timer_t *timer) { close_all(static_cast<Tcp *>(timer->data)); };
    uv_timer_start(&tcp->last_call, cut, tcp->last_call_time, 0);
    uv_walk(
        tcp->loop,
        [](uv_handle_t *handle, void *context) {
            auto *listener =
                reinterpret_cast<uv_handle_t *>(&static_cast<Tcp *>(context)->listener);
            if (handle->type != UV_TCP || uv_is_closing(handle)) return;
            if (handle == listener) return close_plainly(handle);
            if (handle->data) connection_drain(static_cast<TcpConnection *>(handle->data));
        },
        tcp);
}

// Frees the loop; false, with the loop in place, when libuv holds it for another reason than
// handles that still close.
bool free_loop(Tcp *tcp) {
    end_stopping(tcp);
    close_all(tcp);
    int code;
    while ((code = uv_loop_close(tcp->loop)) == UV_EBUSY) turn(tcp, UV_RUN_DEFAULT);
    if (code < 0) return false;
    const std::lock_guard lock(tcp->mutex);
    delete std::exchange(tcp->loop, nullptr);
    return true;
}

// A peer that falls silent with half of a request told, or a user who breaks off while nothing
// comes: no transfer asks the echo then.
void look_at_all(uv_timer_t *timer) {
    auto *tcp = static_cast<Tcp *>(timer->data);
    uv_walk(
        timer->loop,
        [](uv_handle_t *handle, void *context) {
            auto *tcp = static_cast<Tcp *>(context);
            const bool ours = handle == reinterpret_cast<uv_handle_t *>(&tcp->listener);
            if (handle->type == UV_TCP && !ours && handle->data)
                connection_look(static_cast<TcpConnection *>(handle->data));
        },
        tcp);
}

// Ends a connection that can't be opened, and tells its echo now: in the next turn the echo would
// take it for the end of the connection that is asked for next.
void end_unopened(Tcp *tcp, TcpConnection *connection) {
    const KeptFailure kept;
    connection_cut(connection);
    if (!tcp->turning) turn(tcp, UV_RUN_DEFAULT);
}

bool make_loop(Tcp *tcp, bool server) {
    auto *loop = new (std::nothrow) uv_loop_t;
    if (!loop) return fail_memory();
    if (const int code = uv_loop_init(loop); code < 0) {
        delete loop;
        return fail_uv(code, nullptr);
    }
    uv_timer_init(loop, &tcp->look);
    tcp->look.data = tcp;
    uv_timer_start(&tcp->look, look_at_all, kLookRound, kLookRound);
    uv_unref(reinterpret_cast<uv_handle_t *>(&tcp->look));
    uv_timer_init(loop, &tcp->last_call);
    tcp->last_call.data = tcp;
    uv_unref(reinterpret_cast<uv_handle_t *>(&tcp->last_call));
    uv_idle_init(loop, &tcp->turn); // keeps the loop alive only while it runs
    tcp->turn.data = tcp;
    tcp->draining = false;
    const std::lock_guard lock(tcp->mutex);
    tcp->loop = loop;
    tcp->server = server;
    return true;
}

// Lets another thread end the loop. The handle keeps nothing alive.
int make_stoppable(Tcp *tcp) {
    const int code = uv_async_init(tcp->loop, &tcp->stop, [](uv_async_t *async) {
        auto *tcp = static_cast<Tcp *>(async->data);
        end_stopping(tcp);
        drain(tcp);
    });
    if (code < 0) return code;
    tcp->stop.data = tcp;
    uv_unref(reinterpret_cast<uv_handle_t *>(&tcp->stop));
    const std::lock_guard lock(tcp->mutex);
    tcp->stoppable = true;
    return 0;
}

// The steps of listening on a resolved address, each with its message.
bool open_listener(Tcp *tcp, const Address &address, const zwchar *host, uint32_t port) {
    const auto fail = [&](int code, const zwchar *key) {
        return fail_uv(code, net_text(key, host, port));
    };
    int code = uv_tcp_init_ex(tcp->loop, &tcp->listener, 0);
    tcp->listener.data = tcp;
    if (!code) code = make_stoppable(tcp);
    if (code < 0) return fail(code, u"srv.eUnableToOpenTcp_s_d");
    code = uv_tcp_bind(&tcp->listener, address.get(), 0);
    if (code < 0) return fail(code, u"srv.eUnableToBindTcp_s_d");
    zLogReport(__FILE__, __LINE__, kNotice, kFacilitySrv, u"%s",
               net_text(u"srv.sServiceStarting_s_d", host, port));
    auto *stream = reinterpret_cast<uv_stream_t *>(&tcp->listener);
    code = uv_listen(stream, static_cast<int>(std::min(tcp->backlog, uint32_t{INT32_MAX})),
                     on_connection);
    if (code < 0) return fail(code, u"srv.eUnableToListenTcp_s_d");
    return true;
}

constexpr LoopClass kTcp = {
    .New = zTcpNew,
    .Free = zTcpFree,
    .Listen = zTcpListen,
    .Connect = zTcpConnect,
    .Run = zTcpRun,
    .Once = zTcpOnce,
    .Alive = zTcpAlive,
    .Usage = zTcpUsage,
    .Close = zTcpClose,
};

} // namespace

const LoopClass *zTcpClass() { return &kTcp; }

Loop *zTcpNew(Echo *echo, uint32_t backlog, uint64_t timeout) {
    if (!echo) return fail_args();
    auto *tcp = new (std::nothrow) Tcp{};
    if (!tcp) return fail_memory();
    tcp->head.table = &kTcp;
    tcp->echo = echo;
    tcp->backlog = backlog;
    tcp->timeout = timeout;
    tcp->last_call_time = limits::http_last_call / (kSecond / 1000);
    tcp->usage.start = tcp->usage.last = time_of(os::calls.now());
    return &tcp->head;
}

void zTcpFree(Loop *loop) {
    if (!loop) return;
    Tcp *tcp = tcp_of(loop);
    zTcpClose(loop);
    if (tcp->loop && !tcp->turning) free_loop(tcp);
    delete tcp;
}

bool zTcpListen(Loop *loop, const zwchar *host, uint32_t port) {
    if (!loop || !host) return fail_args();
    Tcp *tcp = tcp_of(loop);
    if (tcp->loop) return fail_uv(UV_EALREADY, net_text(u"srv.eUnableToOpenTcp_s_d", host, port));
    Address address;
    if (const int code = resolve(&address, host, port))
        return fail_resolver(code, net_text(u"net.eUnableToOpenTcp_s_d", host, port));
    if (!make_loop(tcp, true)) return false;
    if (open_listener(tcp, address, host, port)) return true;
    const KeptFailure kept;
    free_loop(tcp);
    return false;
}

bool zTcpConnect(Loop *loop, const zwchar *host, uint32_t port) {
    if (!loop || !host) return fail_args();
    Tcp *tcp = tcp_of(loop);
    Address address;
    if (const int code = resolve(&address, host, port))
        return fail_resolver(code, net_text(u"net.eUnableToResolveHost_s_d", host, port));
    if (tcp->loop && tcp->server) return logged(raise_uv(UV_EALREADY));
    if (!tcp->loop && !make_loop(tcp, false)) return false;

    const zwchar *message = net_text(u"net.eUnableToOpenTcp_s_d", host, port);
    TcpConnection *connection = connection_new(tcp, tcp->echo, message);
    if (!connection) return false;
    tcp->connecting.data = tcp->connection = connection;
    if (const int code =
            uv_tcp_connect(&tcp->connecting, &connection->handle, address.get(), on_connected);
        code < 0) {
        end_unopened(tcp, connection);
        return fail_uv(code, message);
    }
    if (connection_start_timer(connection, kConnectTimeout)) return true;
    end_unopened(tcp, connection);
    return false;
}

// An address in use is told by the system only now, when connections are asked for.
bool zTcpRun(Loop *loop) {
    Tcp *tcp = tcp_of(loop);
    if (!tcp || !tcp->loop) return fail_args();
    assert(!tcp->turning);
    if (const int code = turn(tcp, UV_RUN_DEFAULT); code < 0) fail_uv(code, nullptr);
    free_loop(tcp);
    return true;
}

bool zTcpOnce(Loop *loop) {
    Tcp *tcp = tcp_of(loop);
    if (!tcp || !tcp->loop) return fail_args();
    assert(!tcp->turning);
    const os::SigpipeGuard guard; // a connection that is used again writes before the loop turns
    if (!uv_loop_alive(tcp->loop) && !tcp->server && tcp->connection)
        connection_resume(tcp->connection);
    tcp->last_error = 0;
    const int code = turn(tcp, UV_RUN_ONCE);
    if (code < 0) return fail_uv(code, nullptr);
    if (tcp->last_error != UV_ETIMEDOUT) return true;
    return fail_uv(UV_ETIMEDOUT, nullptr);
}

bool zTcpAlive(Loop *loop) {
    Tcp *tcp = tcp_of(loop);
    if (!tcp) return fail_args();
    return tcp->loop && uv_loop_alive(tcp->loop);
}

TransferUsage *zTcpUsage(Loop *loop) { return loop ? &tcp_of(loop)->usage : fail_args(); }

bool zTcpClose(Loop *loop) {
    if (!loop) return fail_args();
    Tcp *tcp = tcp_of(loop);
    {
        const std::lock_guard lock(tcp->mutex);
        if (!tcp->loop) return true;
        if (tcp->stoppable) uv_async_send(&tcp->stop);
        if (tcp->server) return true; // its thread does the rest
    }
    uv_stop(tcp->loop);
    close_all(tcp);
    return tcp->turning || free_loop(tcp);
}

uint32_t zTcpPort(Loop *loop) {
    Tcp *tcp = tcp_of(loop);
    if (!tcp || !tcp->loop || !tcp->server) return 0;
    sockaddr_storage address{};
    int size = sizeof address;
    if (uv_tcp_getsockname(&tcp->listener, reinterpret_cast<sockaddr *>(&address), &size) < 0)
        return 0;
    return ntohs(reinterpret_cast<const sockaddr_in *>(&address)->sin_port);
}
