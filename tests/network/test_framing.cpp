// What may pass as a message, and where it ends: each rule with the cases on both of its sides.
#include "network/http/framing.hpp"
#include "network/http/message.hpp"
#include "network/http/parser.hpp"
#include "support.hpp"

#include "zev/http_request.h"

#include <span>

using zev::Framing, zev::HeadFacts;

namespace {

const std::string kGet = "GET /a HTTP/1.1\r\nHost: h\r\n";

struct Case {
    std::string head; // without the empty line
    int fault;
    HeadFacts::Body body = HeadFacts::none;
};

void judge(std::span<const Case> cases, bool is_request) {
    for (const Case &each : cases) {
        SCOPED_TRACE(each.head);
        HeadFacts facts;
        EXPECT_EQ(check_head(each.head + "\r\n", is_request, zev::kHttpLimits, &facts), each.fault);
        EXPECT_TRUE(each.fault || facts.body == each.body);
    }
}

TEST(Framing, JudgesHeads) {
    const Case requests[] = {
        {kGet, 0},
        {"GET /a HTTP/1.0\r\n", 0}, // of old, without a host
        {"GET /a HTTP/1.1\r\n", 400},
        {"GET /a HTTP/2.0\r\nHost: h\r\n", 505},
        {"GET /a HTTP/1.1 \r\nHost: h\r\n", 400},
        {"GET  /a HTTP/1.1\r\nHost: h\r\n", 400},
        {"G(T /a HTTP/1.1\r\nHost: h\r\n", 400},
        {"GET /a\tb HTTP/1.1\r\nHost: h\r\n", 400},
        {"GET /" + std::string(2046, 'a') + " HTTP/1.1\r\nHost: h\r\n", 0},
        {"GET /" + std::string(2047, 'a') + " HTTP/1.1\r\nHost: h\r\n", 414},
        {kGet + "X : 1\r\n", 400},           // blank before the colon
        {kGet + "X Y: 1\r\n", 400},          // and in a name
        {kGet + "X: 1\r\n folded\r\n", 400}, // a line that goes on
        {kGet + ": 1\r\n", 400},
        {kGet + "X: a\tb\r\n", 0},
        {kGet + "X: a\001b\r\n", 400},
        {kGet + "X: a\rb\r\n", 400}, // CR alone
        {kGet + "X: a\nY: b\r\n", 400},
        {kGet + std::string("X: a\0b\r\n", 8), 400},
        {kGet + "hOST: g\r\n", 400}, // twice
        {kGet + "X-ZEV-USER: a\r\nx-zev-user: b\r\n", 400},
        {kGet + "Content-Encoding: gzip\r\nContent-Encoding: gzip\r\n", 400},
        {kGet + "Accept: a\r\nAccept: b\r\n", 0},
        {kGet + "Content-Length: 5\r\n", 0, HeadFacts::sized},
        {kGet + "Content-Length: 0\r\n", 0},
        {kGet + "Content-Length: 5\r\nContent-Length: 5\r\n", 400},
        {kGet + "Content-Length: 5, 5\r\n", 400},
        {kGet + "Content-Length: +5\r\n", 400},
        {kGet + "Content-Length: \r\n", 400},
        {kGet + "Content-Length: 99999999999999999999\r\n", 413},
        {kGet + "Content-Length: 2147483649\r\n", 413}, // one above the limit
        {kGet + "Transfer-Encoding: chunked\r\n", 0, HeadFacts::chunked},
        {kGet + "Transfer-Encoding: gzip, chunked\r\n", 400},
        {kGet + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n", 400},
        {kGet + "Transfer-Encoding: xchunked\r\n", 400},
        {kGet + "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n", 400},
        {"GET /a HTTP/1.0\r\nHost: h\r\nTransfer-Encoding: chunked\r\n", 400},
        {kGet + "Expect: 100-continue\r\n", 0},
        {kGet + "Expect: tea\r\n", 400},
    };
    judge(requests, true);
    const Case responses[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n", 0, HeadFacts::sized},
        {"HTTP/1.1 200\r\n", 0, HeadFacts::until_close},
        {"HTTP/1.1 204 No Content\r\nContent-Length: 3\r\n", 0},
        {"HTTP/1.1 304 Not Modified\r\n", 0},
        {"HTTP/1.1 2x0 OK\r\n", 400},
        {"HTTP/1.1 200OK\r\n", 400},
        {"HTTP/3.1 200 OK\r\n", 505},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n", 0, HeadFacts::chunked},
    };
    judge(responses, false);
}

// The verdict of a whole stream of bytes, fed in two pieces: how much belongs to the first message,
// or -1 - fault.
int64_t framed(std::string_view bytes, size_t split) {
    Framing framing(true, zev::kHttpLimits);
    size_t at = 0;
    for (const size_t end : {split, bytes.size()}) {
        while (at < end && !framing.is_complete() && !framing.fault())
            at += framing.take(bytes.substr(at, end - at));
    }
    if (framing.fault()) return -1 - framing.fault();
    return framing.is_complete() ? static_cast<int64_t>(at) : -1;
}

// Wherever a stream is cut by the network, a message ends at the same byte.
TEST(Framing, EndsAtOneByteWhereverItIsSplit) {
    const std::string chunked = kGet + "Transfer-Encoding: chunked\r\n\r\n";
    const struct {
        std::string bytes;
        int64_t end; // -1: goes on, below: fault
    } cases[] = {
        {"\r\n" + kGet + "\r\nGET /next", static_cast<int64_t>(kGet.size() + 4)},
        {kGet + "Content-Length: 3\r\n\r\nabcGET", static_cast<int64_t>(kGet.size() + 24)},
        {chunked + "3\r\nabc\r\n0\r\n\r\nGET", static_cast<int64_t>(chunked.size() + 13)},
        {chunked + "3;x=y\r\nabc\r\n0\r\nT: a\r\n\r\n", static_cast<int64_t>(chunked.size() + 23)},
        {chunked + "3\r\nabc", -1},
        {chunked + "3\r\nabcd\r\n0\r\n\r\n", -401}, // longer than it says
        {chunked + "3\nabc\r\n", -401},
        {chunked + "3 \r\nabc\r\n", -401},
        {chunked + "1000000000000000\r\n", -414},
        {chunked + "80000001\r\n", -414}, // above the limit of a body
        {chunked + "0\r\nT: a\nb\r\n\r\n", -401},
        {std::string(32770, 'a') + "\r\n\r\n", -432},
    };
    for (const auto &each : cases) {
        const size_t step = each.bytes.size() > 1000 ? 997 : 1;
        for (size_t split = 0; split <= each.bytes.size(); split += step)
            ASSERT_EQ(framed(each.bytes, split), each.end) << each.bytes << " at " << split;
    }
}

// What the record holds when all came byte by byte.
TEST(MessageParser, JoinsPieces) {
    const std::string bytes = "PATCH http://x/a%20b?k=v HTTP/1.1\r\nHost: plant:3001\r\n"
                              "X-Long: one\r\nTransfer-Encoding: chunked\r\n\r\n"
                              "2\r\nab\r\n1\r\nc\r\n0\r\nX-Long: trailer\r\n\r\nGET";
    auto request = test::guard(zHttpRequestNew(nullptr), zHttpRequestFree);
    zev::MessageParser parser(true, zev::kHttpLimits);
    parser.begin(request.get(), zHttpRequestParser());
    size_t at = 0;
    while (at < bytes.size() && !parser.is_complete()) {
        size_t taken = 0;
        ASSERT_OK(parser.feed(std::string_view(bytes).substr(at, 1), &taken));
        at += taken;
    }
    EXPECT_EQ(at, bytes.size() - 3);
    EXPECT_EQ(zHttpRequestMethod(request.get()), uint32_t{Z_HTTP_PATCH});
    EXPECT_EQ(test::narrow(zHttpRequestPath(request.get())), "/a b");
    EXPECT_EQ(test::narrow(zHttpRequestHost(request.get())), "plant:3001");
    EXPECT_EQ(test::narrow(zHttpRequestQuery(request.get(), u"k")), "v");
    EXPECT_EQ(test::narrow(zHttpRequestField(request.get(), u"x-long")), "one");
    char body[4] = {};
    EXPECT_EQ(zStreamRead(zHttpRequestBody(request.get()), body, 4), 3u);
    EXPECT_STREQ(body, "abc");
}

} // namespace
