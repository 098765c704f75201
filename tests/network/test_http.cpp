// Client and server beside each other, and the server beside raw sockets.
#include "server_fixture.hpp"

#include <uv.h>

using test::narrow, test::RawSocket, test::TestServer;

namespace {

// Answers with the request's body, or its method; `?code=N` is the status, `?null=1` nothing.
HttpResponse *echo(HttpServer *, HttpRequest *request) {
    if (zHttpRequestQuery(request, u"null")) return nullptr;
    const zwchar *code = zHttpRequestQuery(request, u"code");
    Stream *body = zHttpRequestBody(request);
    HttpResponse *response = zHttpResponseBlank(code ? zStrtolW(code, nullptr, 10) : 200);
    Stream *copy = zMemStream(0, 0);
    char block[4096];
    if (!body) zStreamWrite(copy, "none", 4);
    for (uint64_t count; body && (count = zStreamRead(body, block, sizeof block));)
        zStreamWrite(copy, block, count);
    zHttpResponseSetContents(response, u"text/plain", nullptr, nullptr, copy);
    return response;
}

using Request = test::Guard<HttpRequest>;

Request request_to(const TestServer &server, const std::string &query = "") {
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/test" + query;
    return test::guard(zHttpRequestNew(test::wide(url).c_str()), zHttpRequestFree);
}

std::string body_of(HttpResponse *response) {
    std::string all;
    char block[4096];
    Stream *body = response ? zHttpResponseBody(response) : nullptr;
    for (uint64_t count; body && (count = zStreamRead(body, block, sizeof block));)
        all.append(block, count);
    return all;
}

struct Http : testing::Test {
    TestServer server{echo};
};

TEST_F(Http, CarriesBodiesBothWays) {
    for (const uint64_t size : {0u, 1u, 65535u, 65536u, 300'000u, 5'000'000u}) {
        std::string bytes(size, 'x');
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<char>(i * 2654435761u >> 7);
        auto request = request_to(server);
        Stream *body = zMemStream(0, 0);
        zStreamWrite(body, bytes.data(), size);
        zHttpRequestSetOctet(request.get(), body);
        HttpResponse *response = zHttpRequestPut(request.get());
        ASSERT_EQ(zHttpResponseCode(response), 200) << narrow(zErrorDetail());
        EXPECT_EQ(body_of(response), bytes) << size;
        EXPECT_FALSE(zHttpResponseContentEncoding(response));
    }
}

// One connection for many requests, a new one when the server let the idle one go.
TEST_F(Http, UsesAConnectionAgain) {
    auto request = request_to(server);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(body_of(zHttpRequestGet(request.get())), "none");
    EXPECT_EQ(server.server().open, 1u);
    zHttpRequestSetKeepAlive(request.get(), false);
    ASSERT_EQ(body_of(zHttpRequestGet(request.get())), "none");
    zHttpRequestSetKeepAlive(request.get(), true);
    ASSERT_EQ(body_of(zHttpRequestGet(request.get())), "none");
}

TEST_F(Http, AnswersFailuresInOneForm) {
    auto request = request_to(server, "?null=1");
    HttpResponse *response = zHttpRequestGet(request.get());
    EXPECT_EQ(zHttpResponseCode(response), 500);
    EXPECT_EQ(narrow(zHttpResponseStrerr(response)), "500: Something went wrong on the server");
    zHttpRequestSetUrl(request.get(), u"http://127.0.0.1/nothing");
    response = zHttpRequestGet(request.get());
    EXPECT_EQ(zHttpResponseCode(response), 404);
    auto coded = request_to(server, "?code=418");
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(coded.get())), 418);
}

// What stands on the wire, and two requests that come in one piece.
TEST_F(Http, SpeaksToAnyClient) {
    RawSocket client(server.port());
    const std::string get = "GET /test HTTP/1.1\r\nHost: h\r\n\r\n";
    ASSERT_TRUE(
        client.send("POST /test HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\none" + get));
    std::string answers;
    while (answers.find("none") == answers.npos) {
        const std::string more = client.receive("none");
        ASSERT_FALSE(more.empty()) << answers;
        answers += more;
    }
    EXPECT_EQ(answers, "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Type: text/plain\r\n"
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

TEST_F(Http, CutsOrRefusesWhatIsNoRequest) {
    const struct {
        std::string bytes;
        std::string answer; // how it begins; empty for a cut
    } cases[] = {
        {"nonsense\r\n\r\n", ""},
        {"TRACE /test HTTP/1.1\r\nHost: h\r\n\r\n", ""},
        {"GET /test HTTP/1.1\r\nHost: h\r\nHost: h\r\n\r\n", ""},
        {"GET /" + std::string(3000, 'a') + " HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 414 "},
        {"PUT /test HTTP/1.1\r\nHost: h\r\nContent-Length: 9999999999\r\n\r\n", "HTTP/1.1 413 "},
        {"GET /test HTTP/1.1\r\n" + std::string(40000, 'a'), "HTTP/1.1 431 "},
        {"PUT /test HTTP/1.1\r\nHost: h\r\nContent-Encoding: gzip\r\nContent-Length: 3\r\n\r\nabc",
         "HTTP/1.1 400 "},
        {"PUT /test HTTP/1.1\r\nHost: h\r\nContent-Encoding: br\r\nContent-Length: 3\r\n\r\nabc",
         "HTTP/1.1 400 "},
    };
    for (const auto &each : cases) {
        RawSocket client(server.port());
        client.send(each.bytes);
        const std::string answer = client.receive(each.answer.empty() ? "" : "}");
        EXPECT_EQ(answer.substr(0, each.answer.size()), each.answer) << each.bytes.substr(0, 60);
        if (each.answer.empty()) {
            EXPECT_EQ(answer, "") << each.bytes.substr(0, 60);
        }
    }
    auto request = request_to(server);
    EXPECT_EQ(body_of(zHttpRequestGet(request.get())), "none"); // the others are served
}

// A peer that never answers: 503 after the request's own time; the reason stays in the record.
TEST(HttpClient, GivesUpOnSilence) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), size), 0);
    ASSERT_EQ(listen(fd, 4), 0);
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
    const std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    auto request = test::guard(zHttpRequestNew(test::wide(url).c_str()), zHttpRequestFree);
    zHttpRequestSetTimeout(request.get(), 150);
    HttpResponse *response = zHttpRequestGet(request.get());
    EXPECT_EQ(zHttpResponseCode(response), 503);
    EXPECT_EQ(zErrorCode(), UV_ETIMEDOUT);
    ::close(fd);
    response = zHttpRequestGet(request.get()); // refused now
    EXPECT_EQ(zHttpResponseCode(response), 503);
    EXPECT_EQ(zErrorCode(), UV_ECONNREFUSED);
}

// The user's break ends a transfer between two pieces; the next send works.
TEST_F(Http, EndsAtTheUsersBreak) {
    struct Breaker : Notify {
        mutable int asked = 0;
        int stop_at = 2;
    } notify{};
    notify.usrbrk = [](const Notify *self) {
        const auto *breaker = static_cast<const Breaker *>(self);
        return ++breaker->asked == breaker->stop_at;
    };
    auto request = request_to(server);
    zHttpRequestSetNotify(request.get(), &notify);
    HttpResponse *response = zHttpRequestGet(request.get());
    EXPECT_EQ(zHttpResponseCode(response), -2);
    EXPECT_TRUE(zHttpRequestUsrbrk(request.get()));
    EXPECT_EQ(zErrorClass(), 6);
    EXPECT_EQ(body_of(zHttpRequestGet(request.get())), "none");
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
