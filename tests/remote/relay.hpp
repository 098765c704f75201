// A port of the loopback between a client and a service: it notes what is asked, hands it on, and
// gives answers of its own where a test has one, or does to the service's whatever a bad line does.
#pragma once

#include "server_fixture.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <netinet/tcp.h>

namespace test {

struct Asked {
    std::string line; // "POST /packs/diff", below the project's address
    std::string head, body;
};

inline constexpr size_t kNever = SIZE_MAX;

// What happens on the way, beside answers that a test has made up.
struct BadLine {
    // To an answer of the service, which becomes one of those that a script may give.
    std::function<std::string(std::string answer, size_t n)> change{};
    size_t pieces = 1; // of each answer
    // From these requests on: the connection ends behind their heads; nobody listens any more.
    size_t deaf_from = kNever, dead_from = kNever;
};

class Relay {
  public:
    // The bytes of an answer, an empty one for a connection that is cut, kSilence for none at all,
    // also behind some bytes; nothing to hand the request on. `n` counts the requests from 0.
    using Script = std::function<std::optional<std::string>(const Asked &, size_t n)>;
    static constexpr const char *kSilence = "silence";

    explicit Relay(uint32_t service) : service_(service), held_(take_port()) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(held_, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
        listen_again();
    }
    ~Relay() {
        stop_listening();
        ::close(held_);
        {
            const std::lock_guard held(mutex_);
            for (int client : open_) shutdown(client, SHUT_RDWR);
        }
        for (std::thread &each : clients_) each.join();
    }
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;

    std::string url(std::string_view project = "ann/plant") const {
        return "http://127.0.0.1:" + std::to_string(port_) + "/repos/" + std::string(project);
    }

    // Of the requests from now on, which are counted anew; no client may be at work.
    void play(Script script = {}, BadLine line = {}) {
        if (dead_) stop_listening(), listen_again();
        const std::lock_guard held(mutex_);
        script_ = std::move(script);
        line_ = std::move(line);
        asked_.clear();
    }
    // The same to all of them.
    void give(std::string answer) {
        play([answer = std::move(answer)](const Asked &, size_t) { return answer; });
    }
    // To those that begin so; all others are handed on.
    void give_to(const std::string &line, const std::string &answer) {
        play([=](const Asked &asked, size_t) -> std::optional<std::string> {
            if (!asked.line.starts_with(line)) return {};
            return answer;
        });
    }
    std::vector<Asked> asked() const {
        const std::lock_guard held(mutex_);
        return asked_;
    }
    // The lines of all requests, one a line.
    std::string lines() const {
        std::string all;
        for (const Asked &each : asked()) all += each.line + "\n";
        return all;
    }

  private:
    // One more socket has the port, so that nobody takes it while the relay is dead.
    int take_port() const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), on = 1;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port_));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        return fd;
    }
    void listen_again() {
        fd_ = take_port();
        EXPECT_EQ(listen(fd_, 8), 0);
        dead_ = false;
        thread_ = std::thread([this] { serve(); });
    }
    void stop_listening() {
        shutdown(fd_, SHUT_RDWR);
        thread_.join();
        ::close(fd_);
    }

    void serve() {
        for (int client; (client = accept(fd_, nullptr, nullptr)) >= 0;) {
            const int on = 1;
            setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            const std::lock_guard held(mutex_);
            open_.push_back(client);
            clients_.emplace_back([this, client] { attend(client); });
        }
    }

    void attend(int client) {
        std::unique_ptr<RawSocket> service;
        for (Asked each; receive(client, each);) {
            size_t n = 0;
            std::optional<std::string> answer = note(each, n);
            if (!answer) {
                if (!service) service = std::make_unique<RawSocket>(service_);
                answer = hand_on(*service, each, n);
            }
            if (answer->empty() || !give(client, *answer)) break;
        }
        const std::lock_guard held(mutex_);
        std::erase(open_, client);
        ::close(client);
    }

    std::optional<std::string> note(const Asked &each, size_t &n) {
        const std::lock_guard held(mutex_);
        n = asked_.size();
        asked_.push_back(each);
        if (n < line_.dead_from) return script_ ? script_(each, n) : std::nullopt;
        shutdown(fd_, SHUT_RDWR);
        dead_ = true;
        return std::string();
    }

    std::string hand_on(const RawSocket &service, const Asked &each, size_t n) {
        Asked answer;
        if (!service.send(each.head + each.body) || !receive_head(service.fd(), answer.head) ||
            !receive_body(service.fd(), answer))
            return {};
        const std::lock_guard held(mutex_);
        std::string whole = answer.head + answer.body;
        return line_.change ? line_.change(std::move(whole), n) : whole;
    }

    // False where the connection is at its end with it.
    bool give(int client, std::string answer) {
        const bool silent = answer.ends_with(kSilence);
        if (silent) answer.resize(answer.size() - std::string_view(kSilence).size());
        const size_t piece = answer.size() / std::max<size_t>(pieces(), 1) + 1;
        for (size_t at = 0; at < answer.size(); at += piece)
            ::send(client, answer.data() + at, std::min(piece, answer.size() - at), MSG_NOSIGNAL);
        char byte;
        while (silent && recv(client, &byte, 1, 0) > 0) {
        }
        return !silent && is_whole(answer);
    }
    size_t pieces() const {
        const std::lock_guard held(mutex_);
        return line_.pieces;
    }

    bool receive(int client, Asked &each) {
        if (!receive_head(client, each.head)) return false;
        each.line = line_of(each.head);
        {
            const std::lock_guard held(mutex_);
            if (asked_.size() >= line_.deaf_from) return asked_.push_back(each), false;
        }
        return receive_body(client, each);
    }
    static bool receive_head(int from, std::string &head) {
        head.clear();
        for (char byte; !head.ends_with("\r\n\r\n"); head += byte)
            if (recv(from, &byte, 1, 0) != 1) return false;
        return true;
    }
    static bool receive_body(int from, Asked &each) {
        each.body.resize(length_of(each.head));
        for (size_t at = 0; at < each.body.size();) {
            const ssize_t got = recv(from, each.body.data() + at, each.body.size() - at, 0);
            if (got <= 0) return false;
            at += static_cast<size_t>(got);
        }
        return true;
    }

    static size_t length_of(const std::string &head) {
        const size_t at = head.find("Content-Length: ");
        return at == head.npos ? 0 : std::stoul(head.substr(at + 16));
    }
    static bool is_whole(const std::string &answer) {
        const size_t end = answer.find("\r\n\r\n");
        return end != answer.npos && answer.size() >= end + 4 + length_of(answer);
    }
    std::string line_of(const std::string &head) const {
        std::string line = head.substr(0, head.find(" HTTP/"));
        for (const std::string &from : {url("ann/plant"), url("")})
            if (const size_t at = line.find(from); at != line.npos) line.erase(at, from.size());
        return line;
    }

    const uint32_t service_;
    uint32_t port_ = 0;
    const int held_;
    int fd_ = -1;
    std::atomic<bool> dead_ = false;
    mutable std::mutex mutex_; // of all below
    Script script_;
    BadLine line_;
    std::vector<Asked> asked_;
    std::vector<int> open_;
    std::list<std::thread> clients_;
    std::thread thread_;
};

// An answer as a server sends it.
inline std::string answer(int status, std::string_view body,
                          std::string_view type = "application/json") {
    return "HTTP/1.1 " + std::to_string(status) + " Told\r\nContent-Type: " + std::string(type) +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}
inline std::string octets(std::string_view body) {
    return answer(200, body, "application/octet-stream");
}

} // namespace test
