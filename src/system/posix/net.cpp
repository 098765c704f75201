#include "system/posix/native.hpp"

#include <poll.h>
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

} // namespace zev::os
