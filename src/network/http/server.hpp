// The records of the HTTP server and of its connections' ends.
#pragma once

#include "network/http/parser.hpp"
#include "network/http/response.hpp"
#include "network/server.hpp"
#include "rms/throttle.hpp"
#include "zev/http_request.h"
#include "zev/http_server.h"
#include "zev/vector.h"

#include <string>
#include <vector>

struct HttpServer {
    Server head;
    Loop *tcp;
    HttpEcho *prototype;
    zwchar *host;
    uint32_t port;
    uint32_t maxconn;
    uint32_t timeout; // milliseconds
    Vector handles;   // of HttpHandle, in the order of matching
    zev::HttpLimits limits;
    uint32_t open;          // connections
    zev::Throttle throttle; // of those who fail to prove who they are
};

struct HttpEcho {
    Echo head;
    HttpServer *server;
    zev::MessageParser *parser; // while a request comes
    HttpRequest *request;
    HttpResponse *response;
    std::string outgoing; // head, with the first piece of a body, or a piece; survives a reset
    std::string waiting;  // what came behind a complete request
    EchoAction state;
    uint64_t left;      // of the body that is sent, as its length was told
    int64_t began;      // nanoseconds: the first byte of the request
    int64_t body_from;  // when its head was complete; 0 before
    uint64_t body;      // bytes of it since
    bool told_to_go_on; // to send the body, or sent some of it unasked
    bool counted;       // among the server's open connections
};
