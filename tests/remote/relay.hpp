// A port of the loopback between a client and a service: it notes what is asked, hands it on, and
// gives answers of its own where a test has one.
#pragma once

#include "server_fixture.hpp"

#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace test {

struct Asked {
    std::string line; // "POST /packs/diff", below the project's address
    std::string head, body;
};

class Relay {
  public:
    // The bytes of an answer, an empty one for a connection that is cut, kSilence for none at all;
    // nothing to hand the request on. `n` counts the requests from 0.
    using Script = std::function<std::optional<std::string>(const Asked &, size_t n)>;
    static constexpr const char *kSilence = "silence";

    explicit Relay(uint32_t service) : service_(service), fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(fd_, reinterpret_cast<sockaddr *>(&address), size);
        listen(fd_, 8);
        getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~Relay() {
        shutdown(fd_, SHUT_RDWR);
        thread_.join();
        ::close(fd_);
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

    // Of the requests from now on, which are counted anew.
    void play(Script script = {}) {
        const std::lock_guard held(mutex_);
        script_ = std::move(script);
        asked_.clear();
    }
    // The same to all of them.
    void give(std::string answer) {
        play([answer = std::move(answer)](const Asked &, size_t) { return answer; });
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
    void serve() {
        for (int client; (client = accept(fd_, nullptr, nullptr)) >= 0;) {
            const std::lock_guard held(mutex_);
            open_.push_back(client);
            clients_.emplace_back([this, client] { attend(client); });
        }
    }

    void attend(int client) {
        std::unique_ptr<RawSocket> service;
        for (Asked each; receive(client, each.head, each.body);) {
            each.line = line_of(each.head);
            std::optional<std::string> answer = note(each);
            if (!answer) {
                if (!service) service = std::make_unique<RawSocket>(service_);
                answer.emplace();
                std::string body;
                if (service->send(each.head + each.body) && receive(service->fd(), *answer, body))
                    *answer += body;
            }
            if (*answer == kSilence) {
                char byte;
                while (recv(client, &byte, 1, 0) > 0) {
                }
                break;
            }
            if (answer->empty()) break;
            ::send(client, answer->data(), answer->size(), MSG_NOSIGNAL);
            if (!is_whole(*answer)) break;
        }
        const std::lock_guard held(mutex_);
        std::erase(open_, client);
        ::close(client);
    }

    std::optional<std::string> note(const Asked &each) {
        const std::lock_guard held(mutex_);
        asked_.push_back(each);
        return script_ ? script_(each, asked_.size() - 1) : std::nullopt;
    }

    static size_t length_of(const std::string &head) {
        const size_t at = head.find("Content-Length: ");
        return at == head.npos ? 0 : std::stoul(head.substr(at + 16));
    }
    static bool is_whole(const std::string &answer) {
        const size_t end = answer.find("\r\n\r\n");
        return end != answer.npos && answer.size() >= end + 4 + length_of(answer);
    }
    static bool receive(int from, std::string &head, std::string &body) {
        head.clear();
        for (char byte; !head.ends_with("\r\n\r\n"); head += byte)
            if (recv(from, &byte, 1, 0) != 1) return false;
        body.resize(length_of(head));
        for (size_t at = 0; at < body.size();) {
            const ssize_t got = recv(from, body.data() + at, body.size() - at, 0);
            if (got <= 0) return false;
            at += static_cast<size_t>(got);
        }
        return true;
    }
    std::string line_of(const std::string &head) const {
        std::string line = head.substr(0, head.find(" HTTP/"));
        for (const std::string &from : {url("ann/plant"), url("")})
            if (const size_t at = line.find(from); at != line.npos) line.erase(at, from.size());
        return line;
    }

    const uint32_t service_;
    int fd_;
    uint32_t port_;
    mutable std::mutex mutex_; // of all below
    Script script_;
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
