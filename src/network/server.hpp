// The head of every server's record.
#pragma once

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
    Json *config; // a copy of the host's, with its paths made absolute
    std::atomic<uint32_t> state;
};
