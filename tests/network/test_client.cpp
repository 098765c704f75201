// The client beside a peer that says what a script has, and what records of messages hold.
#include "server_fixture.hpp"

#include "zev/http_client.h"

#include <atomic>

using test::body_of, test::narrow;

namespace {

// Listens on the loopback. Each connection gets its answers, one for each request, and is closed.
class Peer {
  public:
    using Script = std::vector<std::vector<std::string>>;

    explicit Peer(Script script) : script_(std::move(script)) {
        thread_ = std::thread([this] { play(); });
    }
    ~Peer() {
        listener_.end();
        thread_.join();
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    uint32_t port() const { return listener_.port(); }
    int accepted() const { return accepted_; }

  private:
    void play() {
        for (const auto &answers : script_) {
            const int client = listener_.accept();
            if (client < 0) return;
            ++accepted_;
            for (const std::string &answer : answers) {
                if (!await_head(client)) break;
                send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
            }
            ::close(client);
        }
    }
    static bool await_head(int client) {
        std::string head;
        for (char byte; !head.ends_with("\r\n\r\n"); head += byte)
            if (recv(client, &byte, 1, 0) != 1) return false;
        return true;
    }

    const Script script_;
    test::Listener listener_;
    std::atomic<int> accepted_ = 0;
    std::thread thread_;
};

using Request = test::Guard<HttpRequest>;

Request request_to(uint32_t port) {
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/";
    return test::guard(zHttpRequestNew(test::wide(url).c_str()), zHttpRequestFree);
}

// Two sends over a script; what the second one gives.
TEST(HttpClient, TakesOnlyWholeAnswersOfItsOwn) {
    const std::string ok = "HTTP/1.1 200 OK\r\n", one = ok + "Content-Length: 3\r\n\r\none",
                      two = ok + "Content-Length: 3\r\n\r\ntwo",
                      bare = ok + "Content-Length: 3\r\n\r\n";
    const struct {
        const char *what;
        Peer::Script script;
        int32_t code;
        std::string body;
        int connections;
        uint32_t method = Z_HTTP_GET;
    } cases[] = {
        {"one connection", {{one, two}}, 200, "two", 1},
        {"idle one closed", {{one}, {two}}, 200, "two", 2},
        {"interim", {{one, "HTTP/1.1 100 Continue\r\n\r\n" + two}}, 200, "two", 1},
        {"ends in the body", {{one, bare + "t"}, {two}}, 200, "two", 2},
        {"no answer twice", {{one, ""}, {""}}, 503, "", 2},
        {"no HTTP twice", {{one, "nonsense\r\n\r\n"}, {"nonsense\r\n\r\n"}}, 503, "", 2},
        {"closed for the end", {{one, ok + "\r\ntwo"}}, 200, "two", 1},
        {"bytes behind an answer", {{one + two, two}, {two}}, 200, "two", 2},
        {"length of no body", {{bare, bare}}, 200, "", 1, Z_HTTP_HEAD},
        {"not modified", {{one, "HTTP/1.1 304 X\r\nContent-Length: 3\r\n\r\n"}}, 304, "", 1},
    };
    for (const auto &each : cases) {
        Peer peer(each.script);
        Request request = request_to(peer.port());
        zHttpRequestSetMethod(request.get(), each.method);
        zHttpRequestSetTimeout(request.get(), 2000);
        EXPECT_EQ(zHttpResponseCode(zHttpRequestSend(request.get())), 200) << each.what;
        HttpResponse *response = zHttpRequestSend(request.get());
        EXPECT_EQ(zHttpResponseCode(response), each.code) << each.what;
        if (each.code == 503) {
            EXPECT_NE(zErrorClass(), 16) << each.what; // the transport's own reason
        } else {
            EXPECT_EQ(body_of(response), each.body) << each.what;
        }
        EXPECT_EQ(peer.accepted(), each.connections) << each.what;
    }
}

// A query that finds no room in the URL would be another request.
TEST(HttpClient, SendsNoUrlThatLacksAPart) {
    Peer peer({{"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"}});
    Request request = request_to(peer.port());
    zHttpRequestSetQuery(request.get(), u"k", std::u16string(2040, u'v').c_str());
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 503);
    EXPECT_EQ(zErrorClass(), 2);
    zHttpRequestClearQuery(request.get());
    const std::u16string path = u"/" + std::u16string(2047, u'p');
    EXPECT_FALSE(zHttpRequestAppendPath(request.get(), path.c_str()));
    EXPECT_FALSE(zHttpRequestSetPath(request.get(), path.c_str()));
    EXPECT_FALSE(zHttpRequestSetPath(request.get(), std::u16string(700, u'\x20AC').c_str()));
    EXPECT_EQ(zHttpResponseCode(zHttpRequestGet(request.get())), 200);
    zHttpRequestSetMethod(request.get(), 77);
    EXPECT_EQ(zHttpResponseCode(zHttpRequestSend(request.get())), 503);
    EXPECT_EQ(zErrorClass(), 2);
}

// The error body, and what a client makes of it.
TEST(HttpResponse, TellsFailuresInTheRequestsLanguage) {
    const struct {
        const zwchar *language;
        int32_t code;
        const zwchar *key;
        const char *message;
    } cases[] = {
        // Lists, as browsers send them: by weight, a family before another language.
        {u"de-DE,de;q=0.9,en;q=0.5", 404, nullptr, "Unter dieser Adresse hat der Server nichts"},
        {u"en;q=0.5, de ; q=0.75", 404, nullptr, "Unter dieser Adresse hat der Server nichts"},
        {u"fr, de-at;q=0.8, en", 404, nullptr, "The server has nothing at this address"},
        {u"de;q=0, *, de", 404, nullptr, "The server has nothing at this address"},
        {u"../de-DE,de;q=x,;;,=", 404, nullptr, "The server has nothing at this address"},
        {u"en-US", 404, u"srv.eNoSuchOwner_s",
         "There is no owner 'ann': The server has nothing at this address"},
        {u"en-US", 499, nullptr, "http.499"},
    };
    for (const auto &each : cases) {
        auto request = test::guard(zHttpRequestNew(nullptr), zHttpRequestFree);
        zHttpRequestSetAcceptLanguage(request.get(), each.language);
        auto response = test::guard(zHttpResponseError("f", 1, request.get(), each.code, each.key,
                                                       static_cast<const zwchar *>(u"ann")),
                                    zHttpResponseFree);
        ASSERT_TRUE(response);
        EXPECT_EQ(narrow(zHttpResponseStrerr(response.get())),
                  std::to_string(each.code) + ": " + each.message);
    }
}

TEST(HttpMessage, KeepsTheBodyThatIsSetAgain) {
    const auto response = test::guard(zHttpResponseNew(), zHttpResponseFree);
    Stream *body = zMemStream(0, 0);
    zStreamWrite(body, "body", 4);
    for (int n = 0; n < 2; ++n) {
        ASSERT_OK(zHttpResponseSetBody(response.get(), body));
        EXPECT_EQ(body_of(response.get()), "body") << n;
    }
}

TEST(HttpHeader, TakesNoLineEndIntoAValue) {
    auto header = test::guard(zHttpHeaderNew(), zHttpHeaderFree);
    ASSERT_OK(zHttpHeaderPut(header.get(), u"A", u"0"));
    EXPECT_FALSE(zHttpFieldSetValue(zHttpHeaderField(header.get(), u"a"), u"1\r\nX: 2", 7));
    const auto request = test::guard(zHttpRequestNew(nullptr), zHttpRequestFree);
    EXPECT_FALSE(zHttpRequestSetField(request.get(), u"X-Other", u"2\r\nX-ZEV-USER: bob"));
    EXPECT_FALSE(zHttpRequestField(request.get(), u"X-ZEV-USER"));
}

} // namespace
