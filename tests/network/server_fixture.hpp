// A server on a port of the loopback, turned by a thread of its own, and raw sockets to it.
#pragma once

#include "support.hpp"

#include "network/http/server.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test {

// A port of the loopback on which somebody listens.
class Listener {
  public:
    Listener() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *any = reinterpret_cast<sockaddr *>(&address);
        EXPECT_TRUE(!bind(fd_, any, size) && !listen(fd_, 4) && !getsockname(fd_, any, &size));
        port_ = ntohs(address.sin_port);
    }
    ~Listener() { close(); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    uint32_t port() const { return port_; }
    int accept() const { return ::accept(fd_, nullptr, nullptr); } // -1 from its end on
    void end() const { shutdown(fd_, SHUT_RDWR); }
    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

  private:
    int fd_;
    uint32_t port_ = 0;
};

// Bytes to a port and back, with no protocol in between.
class RawSocket {
  public:
    // With room for so many bytes that nobody has taken yet, 0 for what the system gives.
    explicit RawSocket(uint32_t port, int room = 0) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        if (room) setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = !connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address);
    }
    ~RawSocket() { ::close(fd_); }
    RawSocket(const RawSocket &) = delete;
    RawSocket &operator=(const RawSocket &) = delete;

    bool connected() const { return connected_; }
    int fd() const { return fd_; }
    bool send(std::string_view bytes) const {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    // What comes until the peer closes, `wanted` stands in it, or a second and a half have passed
    // without a byte. `closed` tells the first.
    std::string receive(std::string_view wanted = {}, bool *closed = nullptr) const {
        std::string all;
        char block[4096];
        for (pollfd ready{fd_, POLLIN, 0}; poll(&ready, 1, 1500) == 1;) {
            const ssize_t count = recv(fd_, block, sizeof block, 0);
            if (closed) *closed = count <= 0;
            if (count <= 0) break;
            all.append(block, static_cast<size_t>(count));
            if (!wanted.empty() && all.find(wanted) != all.npos) break;
        }
        return all;
    }

  private:
    int fd_;
    bool connected_;
};

// While it lives, both clocks are the test's; servers are made and ended within.
struct FakeClock {
    static inline std::atomic<int64_t> time = zev::kSecond, wall = zev::kSecond;
    const zev::os::Calls before = zev::os::calls;

    FakeClock() {
        zev::os::calls.now = [] { return wall.load(); };
        zev::os::calls.steady = [] { return time.load(); };
    }
    ~FakeClock() { zev::os::calls = before; }
    FakeClock(const FakeClock &) = delete;
    FakeClock &operator=(const FakeClock &) = delete;
};

// All of a response's body, "" without one.
inline std::string body_of(HttpResponse *response) {
    std::string all;
    char block[4096];
    Stream *body = response ? zHttpResponseBody(response) : nullptr;
    for (uint64_t count; body && (count = zStreamRead(body, block, sizeof block));)
        all.append(block, count);
    return all;
}

// An HTTP server with one route, "/test", and what a test makes of it.
class TestServer {
  public:
    explicit TestServer(HttpProc proc, const std::function<void(HttpServer &)> &change = {},
                        const zwchar *auth = nullptr) {
        auto config = guard(zJsonNew(Z_JSON_OBJECT), zJsonFree);
        zJsonPathSetString(config.get(), u"path.root", dir_.path().u16string().c_str());
        zJsonPathSetInt(config.get(), u"http.port", 0);
        zJsonPathSetString(config.get(), u"http.host", u"127.0.0.1");
        if (auth) zJsonPathSetString(config.get(), u"http.auth", auth);
        server_ = zHttpServerNew(config.get(), u"http");
        HttpHandle handle;
        zHttpHandleInit(&handle, u"/test", proc);
        zHttpServerAddHandle(server_, &handle);
        zHttpHandleCleanup(&handle);
        if (change) change(*server_);
        if (!zLoopListen(server_->tcp, server_->host, server_->port)) return;
        port_ = zTcpPort(server_->tcp);
        thread_ = std::thread([this] {
            zLoopRun(server_->tcp);
            zThreadCleanup();
        });
    }
    ~TestServer() {
        stop();
        zHttpServerFree(server_);
    }
    void stop() {
        zHttpServerStop(server_);
        if (thread_.joinable()) thread_.join();
    }
    uint32_t port() const { return port_; }
    HttpServer &server() { return *server_; }
    const std::filesystem::path &root() const { return dir_.path(); }

  private:
    TempDir dir_;
    HttpServer *server_ = nullptr;
    uint32_t port_ = 0;
    std::thread thread_;
};

} // namespace test
