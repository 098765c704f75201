// The records of the transport, for its two files: tcp.cpp opens and ends loops, connection.cpp
// moves bytes.
#pragma once

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/limits.hpp"
#include "zev/tcp.h"

#include <array>
#include <mutex>
#include <string>
#include <vector>

#include <uv.h>

namespace zev {

inline constexpr size_t kReadBlock = 65536;
inline constexpr uint64_t kConnectTimeout = 5000; // milliseconds, whatever the loop's own
inline constexpr uint64_t kLookRound = 1000;      // milliseconds between looks at all connections

// What an echo of a server may want beside what every echo may.
inline constexpr EchoAction kEchoWork = 6;   // to be asked again in the loop's next turn
inline constexpr EchoAction kEchoLinger = 7; // the end, with the peer heard out for a while

struct TcpConnection;

// One loop, and what it drives: a server's listener, or the one connection of a client.
struct Tcp {
    Loop head;
    uv_loop_t *loop; // made by Listen or Connect; null when there is none
    Echo *echo;      // lent: a server's prototype, a client's only one
    bool server;
    uint32_t backlog;
    uint64_t timeout; // milliseconds, 0 for never
    TransferUsage usage;
    int32_t last_error; // libuv's; only the time-out writes it
    uv_tcp_t listener;
    uv_connect_t connecting;

    TcpConnection *connection; // a client's, null when it is closed
    TcpConnection *heard;      // whose echo was called last, null when it is closed
    uv_timer_t look;           // asks every connection now and then whether it is to end
    uv_timer_t last_call;      // runs while `draining`
    uint64_t last_call_time; // milliseconds that answers under way get when a server is told to end
    bool draining;           // a connection ends when its answer has left
    bool turning;            // within uv_run
    uv_idle_t turn;          // runs while there is any that works
    std::vector<TcpConnection *> working; // that are asked in the next turn
    // A ring: whoever comes next takes the place of the one that has lingered longest.
    std::array<TcpConnection *, limits::http_lingering> lingering;
    size_t next_place;
    // What arrives is handed to the echo before anything else is read: one block serves all.
    std::array<char, kReadBlock> block;

    std::mutex mutex; // guards `loop` against a stop, and the two below
    uv_async_t stop;  // wakes the loop's thread to end it
    bool stoppable;   // `stop` is open
};

// One a socket. libuv knows them all; there is no list. Freed by the close callback.
struct TcpConnection {
    uv_tcp_t handle; // its data points here
    uv_buf_t buffer; // while writing: memory of the echo's, not to be moved
    uv_write_t write;
    Tcp *tcp;
    Echo *echo;
    uv_timer_t *timer; // in a block of its own, freed in its own close callback
    bool reading;      // what comes is wanted
    bool watched; // libuv reads; a server's connection is left so until something comes unwanted
    bool writing; // until on_written
    bool cut;     // what the close callback tells the echo
    bool working; // among its loop's
    bool lingering;
    uint64_t linger_left; // bytes that are dropped before it is closed all the same
    uv_shutdown_t shutdown;
};

// ---- connection.cpp

// Called by libuv for the listener and for a client's connect request.
void on_connection(uv_stream_t *listener, int status);
void on_connected(uv_connect_t *request, int status);

// Null with the failure logged; `message` is what is told of libuv's.
TcpConnection *connection_new(Tcp *tcp, Echo *echo, const zwchar *message);
bool connection_start_timer(TcpConnection *connection, uint64_t milliseconds);
void connection_resume(TcpConnection *connection); // a client's, which paused
void connection_cut(TcpConnection *connection);
void connection_look(TcpConnection *connection);  // asks its echo whether it is to end
void connection_drain(TcpConnection *connection); // ends it, unless an answer is on its way
void connections_work(uv_idle_t *turn);           // asks those that work
void timer_close(uv_timer_t *timer);              // unlinked from its connection

// The address, without the port, of the peer whose bytes are at work; empty where it is not known.
std::u16string peer_address(const Loop *loop);
// Whether bytes of that peer have come which nobody has read yet: what he does isn't known then.
bool peer_waits(const Loop *loop);

// ---- Failures of the network: raised with their message and logged as the network's.

Failure fail_uv(int code, const zwchar *message, Here at = {});
Failure fail_resolver(int code, const zwchar *message, Here at = {}); // EAI_ code or errno
// Text of a key in the process's language, lent.
const zwchar *net_text(const zwchar *key);
const zwchar *net_text(const zwchar *key, const zwchar *host, uint32_t port);

} // namespace zev
