// The records of the HTTP server and of its connections' ends.
#pragma once

#include "network/http/access_log.hpp"
#include "network/http/body.hpp"
#include "network/http/parser.hpp"
#include "network/http/response.hpp"
#include "network/server.hpp"
#include "rms/throttle.hpp"
#include "zev/http_request.h"
#include "zev/http_server.h"
#include "zev/vector.h"

#include <memory>
#include <optional>
#include <string>

namespace zev::rest {
class KeptProjects;
}

struct HttpServer {
    Server head;
    Loop *tcp;
    HttpEcho *prototype;
    zwchar *host;
    uint32_t port;
    uint32_t maxconn;
    uint32_t timeout; // milliseconds
    bool guarded;     // every operation needs its right
    Vector handles;   // of HttpHandle, in the order of matching
    zev::HttpLimits limits;
    // Looks at a request whose head is whole and whose captures stand in its query, before any of
    // its body is taken. Null, or a result that is null, is no look, and the limit of any body.
    // May throw.
    std::unique_ptr<zev::Exchange> (*begin)(HttpServer *server, const HttpHandle &handle,
                                            HttpRequest *request);
    zev::HttpLogs logs;
    std::u16string certificate, key; // paths; empty without TLS
    int64_t began;                   // by os::calls.steady
    uint32_t open;                   // connections
    zev::Throttle throttle;          // of those who fail to prove who they are
    HttpEcho *at_work;               // whose request is being answered, else null
    std::shared_ptr<void> projects;  // what the service remembers of how many there are
    std::shared_ptr<zev::rest::KeptProjects> kept; // those that are open between requests
};

namespace zev {

// A server by its settings, of the kind that `kind` stands for, with no routes yet. May throw.
HttpServer *new_http_server(const ServerClass *kind, const Json *config, const zwchar *schema);
// Reads certificate and key anew; from any thread. False, logged, with the old ones in use.
bool renew_identity(const HttpServer *server);

} // namespace zev

struct HttpEcho {
    Echo head;
    HttpServer *server;
    zev::MessageParser *parser; // while a request comes
    HttpRequest *request;
    HttpResponse *response;
    const HttpHandle *handle;                // that matched the head; null where none did
    std::unique_ptr<zev::Exchange> exchange; // from the request's head to its answer
    std::optional<zev::BodyIntake> intake;   // of its body, unless it was refused
    std::string outgoing; // head, with the first piece of a body, or a piece; survives a reset
    std::string waiting;  // what came behind a complete request
    EchoAction state;
    std::string peer;   // its address as text
    std::string line;   // the first of the request's head
    bool answering;     // the answer is not written down yet
    uint64_t sent;      // bytes of the answer's body
    uint64_t left;      // of the body that is sent, as its length was told
    int64_t began;      // by os::calls.steady: the first byte of the request
    int64_t body_from;  // when its head was complete; 0 before
    uint64_t body;      // bytes of it since
    bool told_to_go_on; // to send the body, or sent some of it unasked
    bool asked_at_once; // the transport was told that there is work, and asks again
    bool unread;        // the peer may still send what belongs to the answered request
    bool counted;       // among the server's open connections
};
