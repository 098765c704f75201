// The other end of a server: HTTP over a plain socket, with as little work as there can be.
#pragma once

#include "bench.hpp"

#include <cstring>
#include <functional>
#include <string_view>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

[[noreturn]] inline void give_up(const std::string &what) {
    fprintf(stderr, "%s\n", what.c_str());
    exit(1);
}

class Wire {
  public:
    explicit Wire(uint32_t port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address))
            give_up("no connection");
        const int on = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    ~Wire() { close(fd_); }
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    // Fields that every request has, each line with its CR LF.
    std::string fields;

    // The status of a request whose body is there whole; the answer's is in `body`, unless it was
    // not to be kept.
    int ask(std::string_view method, std::string_view target, std::string_view content = {},
            std::string_view more = {}) {
        begin(method, target, content.size(), more);
        send(content);
        return answer();
    }
    // A request in pieces.
    void begin(std::string_view method, std::string_view target, uint64_t length,
               std::string_view more = {}) {
        std::string head;
        head.append(method).append(" ").append(target).append(" HTTP/1.1\r\nHost: bench\r\n");
        head.append(fields).append(more);
        if (length) head += "Content-Length: " + std::to_string(length) + "\r\n";
        send(head + "\r\n");
    }
    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) give_up("the server has gone");
            bytes.remove_prefix(static_cast<size_t>(count));
        }
    }
    int answer() {
        std::string_view block = receive();
        body.assign(block);
        size_t end;
        while ((end = body.find("\r\n\r\n")) == body.npos) body += receive();
        const std::string head = body.substr(0, end + 4);
        body.erase(0, end + 4);
        const size_t at = head.find("Content-Length: ");
        length = at == head.npos ? 0 : strtoull(head.c_str() + at + 16, nullptr, 10);
        for (uint64_t got = body.size(); got < length; got += block.size()) {
            block = receive();
            if (keeps) body += block;
        }
        return atoi(head.c_str() + 9);
    }
    // What ends the run unless it is answered with success.
    void need(std::string_view method, std::string_view target, std::string_view content = {},
              std::string_view more = {}) {
        check(ask(method, target, content, more));
    }
    void check(int status) const {
        if (status / 100 != 2) give_up("status " + std::to_string(status) + ": " + body);
    }

    std::string body;
    uint64_t length = 0; // of the answer's body
    bool keeps = true;

  private:
    std::string_view receive() {
        const ssize_t count = recv(fd_, block_.data(), block_.size(), 0);
        if (count <= 0) give_up("the server has gone");
        return {block_.data(), static_cast<size_t>(count)};
    }

    int fd_;
    std::string block_ = std::string(256 << 10, 0);
};

} // namespace bench
