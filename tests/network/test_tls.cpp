// TLS on both sides: whom a client believes, what cuts and garbage do, and other programs as
// judges. Certificates are made by the openssl program when they are first needed.
#include "server_fixture.hpp"

#include "common/guard.hpp"
#include "network/tcp/tls.hpp"
#include "zev/http_client.h"

#include <atomic>
#include <cstdlib>
#include <random>

#include <openssl/ssl.h>

using test::body_of, test::narrow, test::RawSocket, test::TempDir, test::TestServer, test::wide;

namespace {

// An authority with what it vouches for, and another that vouches for nobody.
struct Authority {
    TempDir dir;

    Authority() {
        root("ca");
        root("other");
        leaf("good", "DNS:localhost,IP:127.0.0.1");
        leaf("name", "DNS:localhost");
        leaf("wrong", "DNS:plant.example");
        leaf("expired", "DNS:localhost", "-1");
        test::write(dir.path() / "garbage.crt", "no certificate at all\n");
    }
    std::string file(const std::string &name) const { return (dir.path() / name).string(); }

  private:
    void openssl(const std::string &words) const {
        int status = 0;
        const std::string said =
            test::run("cd " + dir.path().string() + " && openssl " + words + " 2>&1", &status);
        EXPECT_EQ(status, 0) << words << "\n" << said;
    }
    void root(const std::string &name) const {
        openssl("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
                "-subj /CN=" +
                name + " -keyout " + name + ".key -out " + name + ".crt");
    }
    void leaf(const std::string &name, const std::string &names,
              const std::string &days = "2") const {
        openssl("req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=" + name +
                " -addext subjectAltName=" + names + " -keyout " + name + ".key -out " + name +
                ".csr");
        openssl("x509 -req -copy_extensions copy -CA ca.crt -CAkey ca.key -CAcreateserial -days " +
                days + " -in " + name + ".csr -out " + name + ".crt");
    }
};

const Authority &authority() {
    static const Authority made;
    return made;
}

// What ZEV_CA_FILE names while it lives; empty for nothing.
struct Trust {
    explicit Trust(const std::string &file) {
        file.empty() ? unsetenv("ZEV_CA_FILE") : setenv("ZEV_CA_FILE", file.c_str(), 1);
    }
    ~Trust() { unsetenv("ZEV_CA_FILE"); }
    Trust(const Trust &) = delete;
    Trust &operator=(const Trust &) = delete;
};

std::atomic<int> answered;

// The request's body, or how many connections there are.
HttpResponse *echo(HttpServer *server, HttpRequest *request) {
    ++answered;
    Stream *body = zHttpRequestBody(request), *copy = zTempStream();
    HttpResponse *response = zHttpResponseBlank(200);
    const std::string open = std::to_string(server->open);
    if (!body) zStreamWrite(copy, open.data(), open.size());
    std::vector<char> block(1 << 16);
    for (uint64_t count; body && (count = zStreamRead(body, block.data(), block.size()));)
        zStreamWrite(copy, block.data(), count);
    zHttpResponseSetContents(response, u"application/octet-stream", nullptr, nullptr, copy);
    return response;
}

struct TlsServer : TestServer {
    explicit TlsServer(const std::string &name = "good")
        : TestServer(echo, [&](HttpServer &server) {
              auto *prototype = reinterpret_cast<Echo *>(server.prototype);
              zLoopFree(server.tcp);
              server.tcp = zLoopNew(zev::tls_class(), prototype, 16, 0);
              EXPECT_OK(zev::tls_set_identity(server.tcp,
                                              wide(authority().file(name + ".crt")).c_str(),
                                              wide(authority().file(name + ".key")).c_str()));
          }) {}
};

using Request = test::Guard<HttpRequest>;

Request request_to(const std::string &host, uint32_t port) {
    const std::string url = "https://" + host + ":" + std::to_string(port) + "/test";
    Request request = test::guard(zHttpRequestNew(wide(url).c_str()), zHttpRequestFree);
    zHttpRequestSetTimeout(request.get(), 10'000);
    return request;
}

std::string noise(size_t size) {
    std::string bytes(size, '\0');
    std::mt19937_64 next(7);
    for (size_t at = 0; at + 8 <= size; at += 8) {
        const uint64_t word = next();
        memcpy(&bytes[at], &word, 8);
    }
    return bytes;
}

void set_body(const Request &request, const std::string &bytes) {
    Stream *body = zMemStream(0, 0);
    zStreamWrite(body, bytes.data(), bytes.size());
    zStreamRewind(body);
    ASSERT_OK(zHttpRequestSetOctet(request.get(), body));
}

TEST(Tls, BelievesOnlyWhoIsVouchedFor) {
    const struct {
        const char *certificate, *host, *trust;
        const char *refused; // empty for none
    } cases[] = {
        {"good", "localhost", "ca.crt", ""},
        {"good", "127.0.0.1", "ca.crt", ""},
        {"name", "127.0.0.1", "ca.crt", "IP address mismatch"},
        {"wrong", "localhost", "ca.crt", "hostname mismatch"},
        {"expired", "localhost", "ca.crt", "certificate has expired"},
        {"good", "localhost", "other.crt", "unable to get local issuer certificate"},
        {"good", "localhost", "", "unable to get local issuer certificate"},
        {"good", "localhost", "absent.crt", "No such file or directory"},
        {"good", "localhost", "garbage.crt", "could not be read"},
    };
    for (const auto &each : cases) {
        const std::string what = std::string(each.certificate) + " " + each.host + " " + each.trust;
        const Trust trust(*each.trust ? authority().file(each.trust) : "");
        const TlsServer server(each.certificate);
        const int before = answered;
        Request request = request_to(each.host, server.port());
        const int32_t code = zHttpResponseCode(zHttpRequestGet(request.get()));
        const std::string detail = narrow(zErrorDetail());
        EXPECT_EQ(code, *each.refused ? 503 : 200) << what << ": " << detail;
        EXPECT_EQ(answered - before, *each.refused ? 0 : 1) << what;
        if (!*each.refused) continue;
        EXPECT_EQ(zErrorClass(), 15) << what;
        EXPECT_NE(detail.find(each.refused), detail.npos) << what << ": " << detail;
        // Nor is anything left of it that a second request would go by.
        EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 503) << what;
    }
}

// No request leaves in the clear by a client that was secure, or the other way round.
TEST(Tls, KeepsToOneKindOfTransport) {
    const Trust trust(authority().file("ca.crt"));
    const TlsServer server;
    Request request = request_to("localhost", server.port());
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 200);
    const std::string url = "http://localhost:" + std::to_string(server.port()) + "/test";
    zHttpRequestSetUrl(request.get(), wide(url).c_str());
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 503);
    EXPECT_EQ(zErrorClass(), 2);
}

TEST(Tls, CarriesLargeBodiesBothWays) {
    const Trust trust(authority().file("ca.crt"));
    const TlsServer server;
    Request request = request_to("localhost", server.port());
    zHttpRequestSetTimeout(request.get(), 60'000);
    for (size_t size : {size_t{1}, size_t{16384}, size_t{65535}, size_t{65536}, size_t{12} << 20}) {
        const std::string bytes = noise(size);
        set_body(request, bytes);
        HttpResponse *response = zHttpRequestPost(request.get());
        ASSERT_EQ(zHttpResponseCode(response), 200) << size << narrow(zErrorDetail());
        EXPECT_TRUE(body_of(response) == bytes) << size;
    }
}

// ---- A peer by the library below, on a thread: reads a head, says something, and ends.

class Peer {
  public:
    enum class End { told, cut, silent };

    Peer(std::string answer, End end, int connections = 1) : answer_(std::move(answer)), end_(end) {
        thread_ = std::thread([this, connections] {
            for (int i = 0; i < connections; ++i) play();
        });
    }
    ~Peer() {
        listener_.end();
        thread_.join();
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    uint32_t port() const { return listener_.port(); }
    int accepted() const { return accepted_; }
    bool heard() const { return heard_; } // by a silent one

  private:
    void play() {
        const int client = listener_.accept();
        if (client < 0) return;
        ++accepted_;
        end_ == End::silent ? hear_out(client) : talk(client);
        ::close(client);
    }
    void hear_out(int client) {
        for (char block[4096]; recv(client, block, sizeof block, 0) > 0;) heard_ = true;
    }
    void talk(int client) const {
        SSL_CTX *context = SSL_CTX_new(TLS_server_method());
        const std::string chain = authority().file("good.crt"), key = authority().file("good.key");
        SSL_CTX_use_certificate_chain_file(context, chain.c_str());
        SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM);
        SSL *session = SSL_new(context);
        SSL_set_fd(session, client);
        if (SSL_accept(session) == 1) {
            std::string head;
            for (char byte; !head.ends_with("\r\n\r\n") && SSL_read(session, &byte, 1) == 1;)
                head += byte;
            SSL_write(session, answer_.data(), static_cast<int>(answer_.size()));
            if (end_ == End::told) SSL_shutdown(session);
        }
        SSL_free(session);
        SSL_CTX_free(context);
    }

    const std::string answer_;
    const End end_;
    test::Listener listener_;
    std::atomic<int> accepted_ = 0;
    std::atomic<bool> heard_ = false;
    std::thread thread_;
};

// Where only the connection's end tells that of the body, anybody could make it shorter.
TEST(Tls, TakesNoCutForAnEnd) {
    const Trust trust(authority().file("ca.crt"));
    const std::string open = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nhalf",
                      counted = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf",
                      whole = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nhalf";
    const struct {
        const char *what;
        const std::string &answer;
        Peer::End end;
        int connections, code;
    } cases[] = {
        {"told", open, Peer::End::told, 1, 200},
        {"cut", open, Peer::End::cut, 2, 503},
        {"cut in a counted body", counted, Peer::End::cut, 2, 503},
        {"told in a counted body", counted, Peer::End::told, 2, 503},
        {"cut behind a counted body", whole, Peer::End::cut, 1, 200},
    };
    for (const auto &each : cases) {
        const Peer peer(each.answer, each.end, each.connections);
        Request request = request_to("localhost", peer.port());
        HttpResponse *response = zHttpRequestGet(request.get());
        const std::string detail = narrow(zErrorDetail());
        EXPECT_EQ(zHttpResponseCode(response), each.code) << each.what << ": " << detail;
        if (each.code == 200) {
            EXPECT_EQ(body_of(response), "half") << each.what;
        }
        EXPECT_EQ(peer.accepted(), each.connections) << each.what;
    }
}

// ---- Who says nothing, or something else

TEST(Tls, GivesAHandshakeSoMuchTime) {
    const test::FakeClock clock;
    const Trust trust(authority().file("ca.crt"));
    const TlsServer server;
    const RawSocket silent(server.port()), begun(server.port());
    ASSERT_TRUE(begun.send("\x16\x03\x01"));                  // of a record
    Request request = request_to("localhost", server.port()); // those two hold nobody up
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 200);
    test::FakeClock::time += 21 * zev::kSecond;
    for (const RawSocket *each : {&silent, &begun}) {
        bool closed = false;
        for (int i = 0; i < 5 && !closed; ++i) each->receive({}, &closed);
        EXPECT_TRUE(closed);
    }
    // A client waits no longer for a server, and does not ask it again.
    const Peer peer("", Peer::End::silent);
    std::thread passing([&] {
        while (!peer.heard()) std::this_thread::yield();
        test::FakeClock::time += 21 * zev::kSecond;
    });
    request = request_to("localhost", peer.port());
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 503);
    EXPECT_NE(narrow(zErrorDetail()).find("took too long"), std::string::npos)
        << narrow(zErrorDetail());
    EXPECT_EQ(peer.accepted(), 1);
    passing.join();
}

TEST(Tls, EndsWithThoseWhoSpeakSomethingElse) {
    const Trust trust(authority().file("ca.crt"));
    const TlsServer server;
    std::string flood = noise(200'000);
    flood.insert(0, "\x16\x03\x01\x02");
    std::vector<std::unique_ptr<RawSocket>> clients; // which take no place while they are heard out
    for (const std::string &said :
         {std::string("GET /test HTTP/1.1\r\nHost: h\r\n\r\n"), std::string("\0\0\0\0\0\0", 6),
          std::string("\x16\x03\x01\x00\x05\x01\xff\xff\xff\xff", 10), flood}) {
        const RawSocket &client = *clients.emplace_back(std::make_unique<RawSocket>(server.port()));
        client.send(said);
        bool closed = false;
        const std::string heard = client.receive({}, &closed);
        EXPECT_TRUE(closed) << said.size();
        EXPECT_LE(heard.size(), 7u) << said.size(); // an alert, or nothing
        EXPECT_EQ(heard.find("HTTP"), heard.npos);
    }
    Request request = request_to("localhost", server.port());
    EXPECT_EQ(body_of(zHttpRequestGet(request.get())), "1");
    // A client that comes to a server without TLS.
    const TestServer plain(echo);
    request = request_to("localhost", plain.port());
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 503);
    EXPECT_NE(narrow(zErrorDetail()).find("No secure connection with localhost: "),
              std::string::npos)
        << narrow(zErrorDetail());
}

// ---- Other programs

TEST(Tls, IsUnderstoodByCurl) {
    const TlsServer server;
    const std::string url = "https://localhost:" + std::to_string(server.port()) + "/test";
    const std::string curl = "curl -sS --cacert " + authority().file("ca.crt") + " ";
    const std::pair<const char *, size_t> cases[] = {{"--tlsv1.2 --tls-max 1.2", 3 << 20},
                                                     {"--tlsv1.3", 50 << 20}};
    for (const auto &[version, size] : cases) {
        test::write(authority().dir.path() / "body", noise(size));
        const std::string sum = test::run("sha256sum < " + authority().file("body"));
        const std::string send = version +
                                 std::string(" -H 'Content-Type: application/octet-stream' "
                                             "--data-binary @") +
                                 authority().file("body") + " ";
        EXPECT_EQ(test::run(curl + send + url + " | sha256sum"), sum) << version;
        EXPECT_EQ(test::run(curl + version + " " + url + " " + url + " 2>&1"), "11") << version;
    }
    int status = 0;
    test::run(curl + "--tls-max 1.1 " + url + " 2>&1", &status);
    EXPECT_NE(status, 0);
    // The end is told, and the protocol is the one that both know.
    const std::string said = test::run(
        "(printf 'GET /test HTTP/1.1\\r\\nHost: h\\r\\nConnection: close\\r\\n\\r\\n'; cat) "
        "</dev/null | openssl s_client -tls1_2 -ign_eof -alpn h2,http/1.1 -state -CAfile " +
        authority().file("ca.crt") + " -connect localhost:" + std::to_string(server.port()) +
        " 2>&1");
    EXPECT_NE(said.find("close notify"), said.npos) << said;
    EXPECT_NE(said.find("ALPN protocol: http/1.1"), said.npos) << said;
}

// A front of the kind that most put before a service. It goes into the background once it listens.
TEST(Tls, ReachesAServerBehindAFront) {
    int status = 0;
    test::run("command -v nginx", &status);
    if (status != 0) GTEST_SKIP() << "nginx is not installed";
    const Trust trust(authority().file("ca.crt"));
    const TestServer server(echo);
    const TempDir dir;
    const std::string at = dir.path().string();
    const uint32_t port = test::Listener().port();
    std::string text = "daemon on; user root; pid " + at + "/pid; error_log " + at + "/error;\n" +
                       "events {}\nhttp { access_log off; client_max_body_size 0;\n";
    for (const std::string kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        text += kind + "_temp_path " + at + "/" + kind + ";\n";
    test::write(at + "/conf", text + "server { listen 127.0.0.1:" + std::to_string(port) +
                                  " ssl; ssl_certificate " + authority().file("good.crt") +
                                  "; ssl_certificate_key " + authority().file("good.key") +
                                  "; location / { proxy_pass http://127.0.0.1:" +
                                  std::to_string(server.port()) + "; } } }\n");
    const std::string nginx = "nginx -e " + at + "/error -p " + at + " -c " + at + "/conf";
    const std::string said = test::run(nginx + " 2>&1 </dev/null", &status);
    ASSERT_EQ(status, 0) << said;
    const zev::Finally ended([&] { test::run(nginx + " -s stop 2>&1"); });
    Request request = request_to("localhost", port);
    const std::string bytes = noise(5'000'000);
    for (int i = 0; i < 3; ++i) {
        set_body(request, bytes);
        HttpResponse *response = zHttpRequestPost(request.get());
        ASSERT_EQ(zHttpResponseCode(response), 200) << narrow(zErrorDetail());
        EXPECT_TRUE(body_of(response) == bytes);
    }
}

} // namespace
