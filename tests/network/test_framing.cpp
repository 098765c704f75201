// Which heads may pass, and what each says of a body; tests/hostile.py plays more of them.
#include "network/http/framing.hpp"
#include "support.hpp"

#include <span>

using zev::HeadFacts;

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
        {"G(T /a HTTP/1.1\r\nHost: h\r\n", 400},
        {"GET /a\tb HTTP/1.1\r\nHost: h\r\n", 400},
        {"GET /" + std::string(2046, 'a') + " HTTP/1.1\r\nHost: h\r\n", 0},
        {"GET /" + std::string(2047, 'a') + " HTTP/1.1\r\nHost: h\r\n", 414},
        {kGet + "X: a\tb\r\n", 0},
        {kGet + "X: a\001b\r\n", 400},
        {kGet + "X-ZEV-USER: a\r\nx-zev-user: b\r\n", 400},
        {kGet + "Content-Encoding: gzip\r\nContent-Encoding: gzip\r\n", 400},
        {kGet + "Content-Length: 5\r\n", 0, HeadFacts::sized},
        {kGet + "Content-Length: 0\r\n", 0},
        {kGet + "Content-Length: 5\r\nContent-Length: 5\r\n", 400},
        {kGet + "Content-Length: +5\r\n", 400},
        {kGet + "Content-Length: \r\n", 400},
        {kGet + "Content-Length: 99999999999999999999\r\n", 413},
        {kGet + "Content-Length: 2147483649\r\n", 413}, // one above the limit
        {kGet + "Transfer-Encoding: chunked\r\n", 0, HeadFacts::chunked},
        {kGet + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n", 400},
        {kGet + "Transfer-Encoding: xchunked\r\n", 400},
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

} // namespace
