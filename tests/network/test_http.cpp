// Client and server beside each other, and the server beside raw sockets.
#include "server_fixture.hpp"

#include "network/tcp/tcp.hpp"
#include "zev/http_client.h"

#include <atomic>
#include <csignal>

#include <uv.h>

using test::RawSocket, test::TestServer;
using zev::Tcp;

namespace {

// Answers with the request's body or "none"; `?null=1` with nothing, `?file=PATH` with a file,
// `?full=1` with what no disk has room for.
HttpResponse *echo(HttpServer *, HttpRequest *request) {
    if (zHttpRequestQuery(request, u"null")) return nullptr;
    if (zHttpRequestQuery(request, u"full")) {
        Stream *lost = zFileStream(u"/dev/full", u"w+b");
        zStreamWrite(lost, "lost", 4);
        return zHttpResponseOctet(200, lost);
    }
    if (const zwchar *file = zHttpRequestQuery(request, u"file"))
        return zHttpResponseFile(200, file);
    Stream *body = zHttpRequestBody(request);
    HttpResponse *response = zHttpResponseBlank(200);
    Stream *copy = zMemStream(0, 0);
    char block[4096];
    if (!body) zStreamWrite(copy, "none", 4);
    for (uint64_t count; body && (count = zStreamRead(body, block, sizeof block));)
        zStreamWrite(copy, block, count);
    zHttpResponseSetContents(response, u"text/plain", nullptr, nullptr, copy);
    return response;
}

bool feed(Echo *echo, std::string bytes) {
    Chunk chunk;
    zChunkInit(&chunk, bytes.data(), bytes.size());
    return zEchoRead(echo, &chunk);
}

struct Http : testing::Test {
    TestServer server{echo};
};

// Less than the head says would make the next answer a part of this one.
TEST_F(Http, CutsAnAnswerThatEndsEarly) {
    const test::TempDir dir;
    const auto path = dir.path() / "body";
    test::write(path, std::string(30'000'000, 'x'));
    RawSocket client(server.port());
    client.send("GET /test?file=" + path.string() + " HTTP/1.1\r\nHost: h\r\n\r\n");
    ASSERT_NE(client.receive("Content-Length: 30000000\r\n"), "");
    std::filesystem::resize_file(path, 0);
    bool closed = false;
    client.receive({}, &closed);
    EXPECT_TRUE(closed);
}

// Nor is what is left of it an answer, compressed or not.
TEST_F(Http, SendsNoBodyThatIsNotWhole) {
    for (const char *accepted : {"identity", "gzip"}) {
        RawSocket client(server.port());
        client.send("GET /test?full=1 HTTP/1.1\r\nHost: h\r\nAccept-Encoding: " +
                    std::string(accepted) + "\r\n\r\n");
        bool closed = false;
        EXPECT_EQ(client.receive({}, &closed), "") << accepted;
        EXPECT_TRUE(closed) << accepted;
    }
}

// A peer that can't undo it reads garbage.
TEST_F(Http, CompressesAsThePeerTakesIt) {
    for (const auto &[accepted, coded] :
         {std::pair("deflate, gzip", "gzip"), {"deflate", "deflate"}, {"br", ""}}) {
        RawSocket client(server.port());
        client.send(std::string("GET /test HTTP/1.1\r\nHost: h\r\nAccept-Encoding: ") + accepted +
                    "\r\nConnection: close\r\n\r\n");
        bool closed = false;
        const std::string answer = client.receive({}, &closed);
        const size_t at = answer.find("Content-Encoding: ");
        EXPECT_EQ(at == answer.npos ? "" : answer.substr(at + 18, answer.find('\r', at) - at - 18),
                  coded)
            << accepted << answer;
        EXPECT_EQ(answer.ends_with("none"), !*coded) << accepted;
    }
}

TEST_F(Http, AnswersWhereItsProcedureGivesNothing) {
    RawSocket client(server.port());
    client.send("GET /test?null=1 HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_TRUE(client.receive("}}").starts_with("HTTP/1.1 500 "));
}

// What stands on the wire, and two requests that come in one piece, the first in chunks.
TEST_F(Http, SpeaksToAnyClient) {
    RawSocket client(server.port());
    const std::string get = "GET /test HTTP/1.1\r\nHost: h\r\n\r\n";
    ASSERT_TRUE(client.send("POST /test HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
                            "3;x=y\r\none\r\n0\r\nT: a\r\n\r\n" +
                            get));
    EXPECT_EQ(client.receive("none"),
              "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Type: text/plain\r\n"
              "Keep-Alive: timeout=0, max=1024\r\nConnection: Keep-Alive\r\n\r\none"
              "HTTP/1.1 200 OK\r\nContent-Length: 4\r\nContent-Type: text/plain\r\n"
              "Keep-Alive: timeout=0, max=1024\r\nConnection: Keep-Alive\r\n\r\nnone");
    ASSERT_TRUE(client.send("HEAD /test HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n"));
    bool closed = false;
    EXPECT_EQ(client.receive({}, &closed), "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n"
                                           "Content-Type: text/plain\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(closed);
}

TEST_F(Http, TellsAWaitingPeerToGoOn) {
    RawSocket client(server.port());
    client.send(
        "PUT /test HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n");
    EXPECT_EQ(client.receive("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    client.send("ab");
    EXPECT_TRUE(client.receive("\r\n\r\nab").ends_with("\r\n\r\nab"));
}

// How long a request may take, from its first byte, and its body from a while after its head,
// whatever somebody sets the machine's clock to meanwhile.
TEST(HttpServer, HasNoPatienceWithTheSlow) {
    const test::FakeClock clock;
    TestServer server(echo);
    const std::string put = "PUT /test HTTP/1.1\r\nHost: h\r\nContent-Length: 90000\r\n\r\n";
    const struct {
        std::string first;
        int seconds; // until the second
        std::string second;
        EchoAction then;
    } cases[] = {
        {"G", 19, "E", Z_ECHO_READ},
        {"G", 21, "E", Z_ECHO_ABORT},
        {"\r\n", 60, "G", Z_ECHO_READ}, // nothing had begun
        {put, 10, "a", Z_ECHO_READ},
        {put, 12, "a", Z_ECHO_ABORT},
        {put, 12, std::string(2048, 'a'), Z_ECHO_READ},
    };
    for (const auto &each : cases) {
        auto base = test::guard(zHttpEchoNew(&server.server()), zHttpEchoFree);
        auto *echo = reinterpret_cast<Echo *>(base.get());
        ASSERT_OK(feed(echo, each.first));
        test::FakeClock::time += each.seconds * zev::kSecond;
        test::FakeClock::wall = test::FakeClock::wall ? 0 : 1'000'000 * zev::kSecond;
        ASSERT_OK(feed(echo, each.second));
        EXPECT_EQ(zEchoAction(echo), each.then) << each.first << " " << each.seconds;
    }
}

// Where the host leaves the signal as it is, and the connection that was kept takes no more.
TEST(HttpClient, OutlivesAKeptConnection) {
    static std::atomic<int> signals;
    signals = 0;
    const auto before = signal(SIGPIPE, [](int) { ++signals; });
    const test::Listener listener;
    int peers[2] = {-1, -1};
    std::thread answering([&] {
        for (int &peer : peers) {
            peer = listener.accept();
            std::string head;
            for (char byte; !head.ends_with("\r\n\r\n") && recv(peer, &byte, 1, 0) == 1;)
                head += byte;
            const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
            send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
    });
    const std::string url = "http://127.0.0.1:" + std::to_string(listener.port()) + "/";
    auto request = test::guard(zHttpRequestNew(test::wide(url).c_str()), zHttpRequestFree);
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 200);
    const auto *tcp = reinterpret_cast<Tcp *>(request->client->loop);
    int fd = -1;
    uv_fileno(reinterpret_cast<const uv_handle_t *>(&tcp->connection->handle), &fd);
    shutdown(fd, SHUT_WR);
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 200);
    listener.end();
    answering.join();
    for (int peer : peers) close(peer);
    signal(SIGPIPE, before);
    EXPECT_EQ(signals, 0);
}

// An end that writes down what it is told, and wants no more than to be closed.
struct Noting {
    Echo head;
    std::string heard;
    static std::string &of(Echo *echo) { return reinterpret_cast<Noting *>(echo)->heard; }
};

TEST(Tcp, TellsAFailedConnectionsEndBeforeTheNextBegins) {
    static constexpr EchoClass kNoting = {
        .New = nullptr,
        .Dup = nullptr,
        .Free = nullptr,
        .Action = [](Echo *echo) { return Noting::of(echo) += "acts ", EchoAction{Z_ECHO_CLOSE}; },
        .Read = nullptr,
        .WrHeader = nullptr,
        .WrBody = nullptr,
        .Close = [](Echo *echo) { Noting::of(echo) += "closed "; },
        .Abort = [](Echo *echo) { Noting::of(echo) += "cut "; },
    };
    Noting noting{{&kNoting}, ""};
    const test::Listener listener;
    const auto loop = test::guard(zLoopNew(zTcpClass(), &noting.head, 1, 0), zLoopFree);
    EXPECT_FALSE(zLoopConnect(loop.get(), u"255.255.255.255", 9)); // refused on the spot
    EXPECT_EQ(zErrorCode(), UV_ENETUNREACH);
    EXPECT_EQ(noting.heard, "cut ");
    ASSERT_OK(zLoopConnect(loop.get(), u"127.0.0.1", listener.port()));
    EXPECT_OK(zLoopOnce(loop.get()));
    EXPECT_EQ(noting.heard, "cut acts closed ");
}

TEST(HttpServer, StopsFromAnotherThreadAtAnyMoment) {
    for (int i = 0; i < 50; ++i) {
        TestServer server(echo);
        std::vector<std::unique_ptr<RawSocket>> idle;
        for (int k = 0; k < i % 4; ++k) idle.push_back(std::make_unique<RawSocket>(server.port()));
        if (i % 3 == 1) idle.push_back(std::make_unique<RawSocket>(server.port()));
        if (i % 3 == 1) idle.back()->send("GET /test HTTP/1.1\r\nHo");
        server.stop();
        EXPECT_EQ(server.server().open, 0u);
    }
}

// Twenty million bytes, which don't fit into any buffer on the way.
HttpResponse *large(HttpServer *, HttpRequest *) {
    HttpResponse *response = zHttpResponseBlank(200);
    Stream *body = zMemStream(0, 0);
    const std::string bytes(20'000'000, 'x');
    zStreamWrite(body, bytes.data(), bytes.size());
    zHttpResponseSetContents(response, u"text/plain", nullptr, nullptr, body);
    return response;
}

// Told to end, a server lets the answer that is on its way leave, closes what stands still, and
// cuts a peer that takes nothing.
TEST(HttpServer, LetsTheLastAnswersLeave) {
    TestServer server(large, [](HttpServer &record) {
        reinterpret_cast<Tcp *>(record.tcp)->last_call_time = 3000;
    });
    const RawSocket taker(server.port()), idle(server.port()), stuck(server.port());
    for (const RawSocket *each : {&taker, &stuck}) {
        ASSERT_TRUE(each->send("GET /test HTTP/1.1\r\nHost: h\r\n\r\n"));
        char first;
        ASSERT_EQ(recv(each->fd(), &first, 1, 0), 1);
    }
    ASSERT_TRUE(zHttpServerStop(&server.server()));
    bool closed = false;
    EXPECT_EQ(idle.receive({}, &closed), "");
    EXPECT_TRUE(closed);
    EXPECT_FALSE(RawSocket(server.port()).connected());
    EXPECT_GT(taker.receive({}, &closed).size(), 20'000'000u);
    EXPECT_TRUE(closed);
    server.stop();
    EXPECT_LT(stuck.receive().size(), 20'000'000u);
}

// 60,000 bytes that find no room on their way; `?look=1` has the loop look at all its connections.
HttpResponse *stuck(HttpServer *server, HttpRequest *request) {
    auto *tcp = reinterpret_cast<Tcp *>(server->tcp);
    if (zHttpRequestQuery(request, u"look")) {
        const auto look = [](uv_handle_t *handle, void *listener) {
            if (handle->type == UV_TCP && handle != listener && handle->data)
                zev::connection_look(static_cast<zev::TcpConnection *>(handle->data));
        };
        uv_walk(tcp->loop, look, &tcp->listener);
        return zHttpResponseBlank(204);
    }
    int fd = -1, size = 4096;
    uv_fileno(reinterpret_cast<uv_handle_t *>(&tcp->heard->handle), &fd);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    Stream *body = zMemStream(0, 0);
    const std::string bytes(60'000, 'x');
    zStreamWrite(body, bytes.data(), bytes.size());
    return zHttpResponseOctet(200, body);
}

// What came behind a request waits until its answer is whole, even if it is cut for.
TEST(HttpServer, TakesNothingUpWhileItAnswers) {
    TestServer server(stuck);
    const RawSocket client(server.port(), 4096), other(server.port());
    ASSERT_TRUE(client.send("GET /test HTTP/1.1\r\nHost: h\r\n\r\nnonsense\r\n\r\n"));
    char first;
    ASSERT_EQ(recv(client.fd(), &first, 1, 0), 1);
    ASSERT_TRUE(other.send("GET /test?look=1 HTTP/1.1\r\nHost: h\r\n\r\n"));
    EXPECT_TRUE(other.receive("\r\n\r\n").starts_with("HTTP/1.1 204 "));
    const std::string answer = client.receive();
    EXPECT_EQ(answer.size() - answer.find("\r\n\r\n") - 4, 60'000u);
}

TEST(HttpServer, CutsASilentConnection) {
    TestServer server(echo, [](HttpServer &record) {
        zLoopFree(record.tcp);
        auto *prototype = reinterpret_cast<Echo *>(record.prototype);
        record.tcp = zLoopNew(zTcpClass(), prototype, 16, 100);
    });
    RawSocket client(server.port());
    bool closed = false;
    EXPECT_EQ(client.receive({}, &closed), "");
    EXPECT_TRUE(closed);
}

} // namespace
