// One datagram to the socket that NOTIFY_SOCKET names: a path, or a name of the abstract kind,
// which is written with "@" for its leading zero byte.
#include "readiness.hpp"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace host {

void tell_manager(const char *state) {
    const char *name = getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = name ? strlen(name) : 0;
    if (length < 2 || length >= sizeof address.sun_path || (*name != '/' && *name != '@')) return;
    memcpy(address.sun_path, name, length);
    if (*name == '@') address.sun_path[0] = 0;
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    sendto(fd, state, strlen(state), MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&address), size);
    close(fd);
}

} // namespace host
