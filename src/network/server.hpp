// The head of every server's record.
#pragma once

#include "common/failure.hpp"
#include "zev/server.h"

#include <atomic>
#include <cstdint>

enum ServerState : uint32_t {
    kServerNew = 0,
    kServerRunning = 1,
    kServerStopping = 2,
    kServerStopped = 3
};

struct Server {
    const ServerClass *table;
    Json *config;    // a copy of the host's, with its paths made absolute
    AuthTable *auth; // null unless the service was started whole
    std::atomic<uint32_t> state;
    std::atomic<uint64_t> thread; // that runs the loop, 0 when none does
};

namespace zev {

// A failure of the server's, which is logged as such.
inline Failure logged_srv(Failure, Here at = {}) {
    return log_raised(kError, at, kFacilitySrv), Failure();
}

// What a kind of server can take anew while it serves; from any thread.
bool reload(const Server *server);

// To be told by a kind of server when it listens, if it is the running one.
void tell_ready(const Server *server, uint32_t port);

} // namespace zev
