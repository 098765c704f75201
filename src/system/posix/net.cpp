// Sockets and standard streams: what they lead to may be gone or closed, which must neither end the
// host by a signal nor put its console into a file of ours.
#include "system/posix/native.hpp"

#include <csignal>
#include <netdb.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>

namespace zev::os {

// poll, since select ends at descriptor 1,023.
int socket_wait(int fd, bool for_write, int milliseconds) {
    pollfd one = {fd, static_cast<short>((for_write ? POLLOUT : POLLIN) | POLLPRI), 0};
    const int ready = retry([&] { return ::poll(&one, 1, milliseconds); });
    return ready > 0 ? 1 : ready;
}

int64_t socket_receive(int fd, void *bytes, size_t size) {
    return retry([&] { return ::recv(fd, bytes, size, 0); });
}

int64_t socket_send(int fd, const void *bytes, size_t size) {
    return retry([&] { return ::send(fd, bytes, size, MSG_NOSIGNAL); });
}

void socket_close(int fd) { ::close(fd); }

int resolve(const char16_t *host, uint32_t port, addrinfo **list) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    if (port > UINT16_MAX) return EAI_SERVICE; // the system would take it for a lower one
    const std::string service = std::to_string(port);
    const int code = getaddrinfo(Utf8Path(host), service.c_str(), &hints, list);
    return code == EAI_SYSTEM ? errno : code;
}

void occupy_standard() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0 || errno != EBADF) continue;
        int opened = ::open("/dev/null", O_RDWR);
        if (opened < 0) opened = ::open("/", O_PATH); // takes nothing either
        if (opened > 2) close(opened);                // another thread was there first
    }
}

namespace {

sigset_t only_sigpipe() {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGPIPE);
    return one;
}

} // namespace

SigpipeGuard::SigpipeGuard() {
    const sigset_t one = only_sigpipe();
    sigset_t before, waiting;
    sigemptyset(&waiting);
    pthread_sigmask(SIG_BLOCK, &one, &before);
    sigpending(&waiting);
    blocked_ = sigismember(&before, SIGPIPE) == 1;
    pending_ = sigismember(&waiting, SIGPIPE) == 1;
}

SigpipeGuard::~SigpipeGuard() {
    const int kept = errno;
    const sigset_t one = only_sigpipe();
    constexpr timespec kNow = {0, 0};
    if (!pending_) retry([&] { return sigtimedwait(&one, nullptr, &kNow); });
    if (!blocked_) pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    errno = kept;
}

} // namespace zev::os
