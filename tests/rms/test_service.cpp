// The service of a process, with its module, as a host runs it: started on one thread, shut down
// from another, again and again.
#include "support.hpp"

#include <atomic>
#include <future>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <uv.h>

using namespace test;

namespace {

class Socket {
  public:
    Socket() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    Socket(Socket &&other) : fd_(std::exchange(other.fd_, -1)), address_(other.address_) {}
    ~Socket() {
        if (fd_ >= 0) close(fd_);
    }
    bool connect(uint32_t port) {
        address_.sin_port = htons(static_cast<uint16_t>(port));
        return ::connect(fd_, reinterpret_cast<sockaddr *>(&address_), sizeof address_) == 0;
    }
    uint32_t listen(uint32_t port = 0) { // on a port of its own; 0 for a failure
        const int on = 1;                // whoever had it before may have left connections behind
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        address_.sin_port = htons(static_cast<uint16_t>(port));
        socklen_t size = sizeof address_;
        auto *address = reinterpret_cast<sockaddr *>(&address_);
        if (bind(fd_, address, size) || ::listen(fd_, 1) || getsockname(fd_, address, &size))
            return 0;
        return ntohs(address_.sin_port);
    }
    bool send(std::string_view bytes) const {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
    }
    // The first bytes that come within some seconds; none from a peer that closes, or resets a
    // connection that it had not looked at yet.
    std::string receive() const {
        char block[512];
        pollfd ready{fd_, POLLIN, 0};
        if (poll(&ready, 1, 5000) != 1) return "silence";
        const ssize_t count = recv(fd_, block, sizeof block, 0);
        return std::string(block, count > 0 ? static_cast<size_t>(count) : 0);
    }

  private:
    int fd_;
    sockaddr_in address_{};
};

constexpr const char *kHealth = "GET /health HTTP/1.1\r\nHost: h\r\n\r\n";

class Process : public testing::Test {
  protected:
    TempDir dir;
    Guard<Json> config{zJsonNew(Z_JSON_OBJECT), zJsonFree};

    void SetUp() override {
        ASSERT_TRUE(zPathGetAppData(former_));
        std::filesystem::create_directories(dir.path() / "conf");
        std::filesystem::create_directories(dir.path() / "logs");
        ASSERT_TRUE(zPathSetAppData(dir.path().u16string().c_str(), nullptr));
        zJsonPathSetString(config.get(), u"schema", u"http");
        zJsonPathSetString(config.get(), u"path.root", dir.path().u16string().c_str());
        zJsonPathSetString(config.get(), u"http.host", u"127.0.0.1");
        set_port(0);
    }
    void TearDown() override {
        zServerOnReady(nullptr, nullptr);
        zPathSetAppData(former_, nullptr);
    }
    void set_port(uint32_t port) {
        zJsonPathSetInt(config.get(), u"http.port", static_cast<int32_t>(port));
    }

  private:
    zwchar former_[Z_PATH_MAX] = {};
};

// One run of the service, on a thread of its own.
struct Served {
    explicit Served(const Json *config) {
        zServerOnReady(
            [](uint32_t port, void *self) { static_cast<Served *>(self)->ready.set_value(port); },
            this);
        thread = std::thread([this, config] {
            served = zServerStartup(config);
            reason = zErrorCode();
            over = true;
            zThreadCleanup();
        });
    }
    ~Served() {
        if (thread.joinable()) thread.join();
    }
    uint32_t port() { return ready.get_future().get(); }

    std::promise<uint32_t> ready;
    std::atomic<bool> over = false;
    bool served = false;
    int32_t reason = 0;
    std::thread thread; // last: it uses the others
};

// Whatever its clients are at then; who waits for the end finds the port free.
TEST_F(Process, StartsAndStopsAgainAndAgain) {
    for (int i = 0; i < 200; ++i) {
        Served service(config.get());
        const uint32_t port = service.port();
        std::vector<Socket> idle(i % 50 ? static_cast<size_t>(i % 3) : 50);
        for (Socket &each : idle) ASSERT_TRUE(each.connect(port)) << i;
        if (i % 2) {
            Socket client;
            ASSERT_TRUE(client.connect(port) && client.send(kHealth));
            EXPECT_TRUE(client.receive().starts_with("HTTP/1.1 200 ")) << i;
        }
        if (i % 3 == 2) idle[0].send("GET /hea");
        if (i % 50 == 0) {
            EXPECT_FALSE(zServerStartup(config.get())); // beside the first
            EXPECT_EQ(zErrorCode(), 103);
        }
        ASSERT_OK(zServerShutdown()) << i;
        for (const Socket &each : idle) EXPECT_EQ(each.receive(), "") << i;
        if (i % 50 == 0) {
            EXPECT_EQ(Socket().listen(port), port);
        }
        service.thread.join();
        EXPECT_TRUE(service.served) << i;
    }
}

// At whatever moment of a start the end is asked for.
TEST_F(Process, StopsWhileItStarts) {
    for (int i = 0; i < 20; ++i) {
        Served service(config.get());
        while (!service.over) {
            ASSERT_OK(zServerShutdown());
            std::this_thread::yield();
        }
    }
}

TEST_F(Process, SaysThatItsPortIsTaken) {
    Socket taken;
    set_port(taken.listen());
    for (int i = 0; i < 2; ++i) {
        Served service(config.get());
        while (!service.over) std::this_thread::yield();
        EXPECT_FALSE(service.served);
        EXPECT_EQ(service.reason, UV_EADDRINUSE);
    }
    EXPECT_TRUE(zServerShutdown());
    set_port(0);
    Served service(config.get());
    Socket client;
    EXPECT_TRUE(client.connect(service.port()) && client.send(kHealth));
    EXPECT_TRUE(client.receive().starts_with("HTTP/1.1 200 "));
    ASSERT_OK(zServerShutdown());
}

} // namespace
