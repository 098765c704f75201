// The socket kind: waits up to a second for the descriptor, then transfers whatever the wait gave.
#include "zev/stream.h"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/guard.hpp"
#include "system/os.hpp"

#include "zev/error.h"

#include <atomic>
#include <cerrno>
#include <new>

using namespace zev;

namespace {

constexpr int kWaitMs = 1000;

struct SocketStream : Stream {
    Socket *socket;
    bool owned;
};

// A socket has no position and no size.
constexpr Stream kSocketHead = {.read = zSocketStreamRead,
                                .write = zSocketStreamWrite,
                                .free = zSocketStreamFree,
                                .flush = zSocketStreamFlush,
                                .eof = zSocketStreamEOF,
                                .error = zSocketStreamError,
                                .tell = nullptr,
                                .seek = nullptr,
                                .rewind = nullptr,
                                .size = nullptr};

Socket *socket_of(Stream *stream, Here at = {}) {
    if (!stream) return fail_args(at);
    return static_cast<SocketStream *>(stream)->socket;
}

// What a failed transfer leaves in the record and in the log.
int32_t fail_socket(Here at = {}) {
    const auto code = static_cast<int32_t>(err_from_host(errno));
    logged(fail_system(), at);
    return code;
}

void release(Socket *socket) {
    if (std::atomic_ref(socket->references).fetch_sub(1) != 1) return;
    Malloced<Socket> record(socket);
    Malloced<void> block(socket->block);
    os::socket_close(socket->descriptor);
}

} // namespace

Stream *zSocketStream(Socket *socket, bool owned) {
    if (!socket) return fail_args();
    auto *stream = new (std::nothrow) SocketStream{{kSocketHead}, socket, owned};
    return stream ? stream : fail_memory();
}

uint64_t zSocketStreamRead(Stream *stream, void *buffer, uint64_t count) {
    Socket *socket = socket_of(stream);
    if (!socket) return 0;
    os::socket_wait(socket->descriptor, false, kWaitMs);
    const int64_t got = os::socket_receive(socket->descriptor, buffer, count);
    socket->last_error = got < 0 ? fail_socket() : 0;
    return got < 0 ? 0 : static_cast<uint64_t>(got);
}

// A peer that went away is a failure of this call, never a signal to the host. It doesn't put the
// stream into a failed state: what the peer sent before can still be read.
uint64_t zSocketStreamWrite(Stream *stream, const void *buffer, uint64_t count) {
    Socket *socket = socket_of(stream);
    if (!socket) return 0;
    os::socket_wait(socket->descriptor, true, kWaitMs);
    const int64_t sent = os::socket_send(socket->descriptor, buffer, count);
    socket->last_error = 0;
    return sent < 0 ? (fail_socket(), 0) : static_cast<uint64_t>(sent);
}

void zSocketStreamFree(Stream *stream) {
    std::unique_ptr<SocketStream> record(static_cast<SocketStream *>(stream));
    if (record && record->owned) release(record->socket);
}

bool zSocketStreamFlush(Stream *stream) { return socket_of(stream); }

bool zSocketStreamEOF(Stream *) { return false; }

bool zSocketStreamError(Stream *stream) {
    const Socket *socket = socket_of(stream);
    return !socket || socket->last_error != 0;
}
