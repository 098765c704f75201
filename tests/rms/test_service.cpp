// The service of a process, with its module, as a host runs it: started on one thread, shut down
// from another, again and again.
#include "running_service.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <uv.h>

using namespace test;

namespace {

// A socket of the loopback that listens on a port, or on any that is free.
class Listener {
  public:
    explicit Listener(uint32_t port = 0) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int on = 1; // whoever had it before may have left connections behind
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        auto *bare = reinterpret_cast<sockaddr *>(&address);
        socklen_t size = sizeof address;
        if (bind(fd_, bare, size) || listen(fd_, 1) || getsockname(fd_, bare, &size)) return;
        port_ = ntohs(address.sin_port);
    }
    ~Listener() { close(fd_); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
    uint32_t port() const { return port_; } // 0 where it can't be had

  private:
    int fd_;
    uint32_t port_ = 0;
};

bool is_served(uint32_t port) {
    int status = -1;
    run("curl -sf --max-time 5 http://127.0.0.1:" + std::to_string(port) + "/health", &status);
    return status == 0;
}

class Process : public AuthTest {
  protected:
    Guard<Json> config{settings(), zJsonFree};

    void TearDown() override {
        zServerOnReady(nullptr, nullptr);
        AuthTest::TearDown();
    }
    void set_port(uint32_t port) {
        zJsonPathSetInt(config.get(), u"http.port", static_cast<int32_t>(port));
    }
};

// Who waits for the end finds the port free.
TEST_F(Process, StartsAndStopsAgainAndAgain) {
    for (int i = 0; i < 200; ++i) {
        Served service(config.get());
        const uint32_t port = service.port();
        if (i % 20 == 0) {
            EXPECT_TRUE(is_served(port)) << i;
            EXPECT_FAILS_WITH(zServerStartup(config.get()), 103); // beside the first
        }
        ASSERT_OK(zServerShutdown()) << i;
        if (i % 20 == 0) {
            EXPECT_EQ(Listener(port).port(), port) << i;
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
    const Listener taken;
    set_port(taken.port());
    for (int i = 0; i < 2; ++i) {
        Served service(config.get());
        while (!service.over) std::this_thread::yield();
        EXPECT_FALSE(service.served);
        EXPECT_EQ(service.reason, UV_EADDRINUSE);
    }
    EXPECT_TRUE(zServerShutdown());
    set_port(0);
    Served service(config.get());
    EXPECT_TRUE(is_served(service.port()));
    ASSERT_OK(zServerShutdown());
}

} // namespace
