// Asks the system by a socket that is bound as the service's would be, and never listened on.
#include "listening.hpp"

#include <cerrno>
#include <cstring>
#include <memory>

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace host {

namespace {

// The address that the service takes: the first of the older family, else the first.
const addrinfo *chosen(const addrinfo *list) {
    for (const addrinfo *each = list; each; each = each->ai_next)
        if (each->ai_family == AF_INET) return each;
    return list;
}

// An error number, 0 for none.
int bind_once(const addrinfo &address) {
    const int fd = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return errno;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const int code = bind(fd, address.ai_addr, address.ai_addrlen) ? errno : 0;
    close(fd);
    return code == EADDRINUSE ? 0 : code;
}

} // namespace

std::string listening_problem(const std::string &host, uint16_t port) {
    addrinfo *found = nullptr, hints{};
    hints.ai_socktype = SOCK_STREAM;
    const std::string digits = std::to_string(port);
    const std::string where = "can't listen on " + host + ", port " + digits + ": ";
    const int code = getaddrinfo(host.c_str(), digits.c_str(), &hints, &found);
    if (code) return where + (code == EAI_SYSTEM ? strerror(errno) : gai_strerror(code));
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> list(found, freeaddrinfo);
    const int refused = bind_once(*chosen(found));
    return refused ? where + strerror(refused) : std::string();
}

} // namespace host
