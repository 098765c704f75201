// The stream kinds and the portable encoding, through the interface only.
#include "support.hpp"

#include "common/json.hpp"

#include <cmath>
#include <cstdlib>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using test::guard;
using StreamGuard = test::Guard<Stream>;

constexpr uint64_t kLongest = 0x4000000;

StreamGuard memory(uint32_t mode = 0, uint64_t capacity = 0) {
    return guard(zMemStream(mode, capacity), zStreamFree);
}

std::string contents(Stream *stream) {
    std::string bytes(zStreamSize(stream), '\0');
    EXPECT_TRUE(zStreamRewind(stream));
    EXPECT_EQ(zStreamRead(stream, bytes.data(), bytes.size()), bytes.size());
    return bytes;
}

// Lost with the buffer, as on a full disk, whoever had it written.
TEST(FileStream, TellsOfLostBytesForGood) {
    const auto full = guard(zFileStream(u"/dev/full", u"wb"), zStreamFree);
    ASSERT_EQ(zStreamWrite(full.get(), "x", 1), 1u);
    zStreamSize(full.get());
    zStreamRewind(full.get());
    EXPECT_TRUE(zStreamError(full.get()));
}

TEST(StreamEncoding, ValuesAreBigEndianAndComeBack) {
    auto stream = memory();
    EXPECT_EQ(zStreamWrInt64(stream.get(), INT64_MIN + 7), 8u);
    EXPECT_EQ(zStreamWrFloat(stream.get(), -0.0f), 4u);
    EXPECT_EQ(zStreamWrStringA(stream.get(), "ab"), 6u);
    EXPECT_EQ(zStreamWrStringW(stream.get(), u"\xe4"), 6u);
    EXPECT_EQ(contents(stream.get()),
              std::string("\x80\0\0\0\0\0\0\7\x80\0\0\0\0\0\0\2ab\0\0\0\2\xc3\xa4", 24));
    int64_t number = 0;
    float real = 1;
    zStreamRewind(stream.get());
    EXPECT_EQ(zStreamRdInt64(stream.get(), &number), 8u);
    EXPECT_EQ(zStreamRdFloat(stream.get(), &real), 4u);
    EXPECT_TRUE(number == INT64_MIN + 7 && real == 0 && std::signbit(real));
    zStreamSeek(stream.get(), 20, 0); // what ends early leaves the value alone
    EXPECT_EQ(zStreamRdInt64(stream.get(), &number), 4u);
    EXPECT_EQ(number, INT64_MIN + 7);
}

StreamGuard holding(const std::string &bytes) {
    auto stream = memory();
    zStreamWrite(stream.get(), bytes.data(), bytes.size());
    zStreamRewind(stream.get());
    return stream;
}

TEST(StreamEncoding, StringsThatEndEarlyOrLie) {
    const struct {
        std::string bytes;
        uint64_t count; // what the read gives
        const char *text;
        int64_t position; // where the stream is left
    } rows[] = {
        {{"\0\0\0\2ab\0\0\0\0", 10}, 6, "ab", 6},
        {{"\0\0\0\0x", 5}, 4, "", 4},
        {{"\0\0\0\0", 4}, 0, "", 4},     // the end already holds behind the prefix
        {{"\0\0\0\5ab", 6}, 6, "ab", 6}, // short: padded with zeros
        {{"\4\0\0\1abc", 7}, 0, "", 4},  // longer than is allowed: left behind the prefix
        {{"\377\377\377\377abc", 7}, 0, "", 4},
    };
    for (const auto &row : rows) {
        auto stream = holding(row.bytes);
        char *text = nullptr;
        EXPECT_EQ(zStreamRdStringA(stream.get(), &text), row.count);
        ASSERT_TRUE(text);
        EXPECT_STREQ(text, row.text);
        EXPECT_EQ(zStreamTell(stream.get()), row.position);
        zStrfreeA(text);
        zStreamRewind(stream.get());
        zwchar *wide = nullptr;
        EXPECT_EQ(zStreamRdStringW(stream.get(), &wide), row.count);
        EXPECT_EQ(test::narrow(wide), row.text);
        zStrfreeW(wide);
    }
}

TEST(StreamEncoding, LongestString) {
    auto stream = memory(0, kLongest + 4);
    std::string longest(kLongest, 'x');
    ASSERT_EQ(zStreamWrStringA(stream.get(), longest.c_str()), kLongest + 4);
    zStreamWrUInt8(stream.get(), 1);
    zStreamRewind(stream.get());
    char *back = nullptr;
    EXPECT_EQ(zStreamRdStringA(stream.get(), &back), kLongest + 4);
    EXPECT_TRUE(longest == back);
    zStrfreeA(back);
    stream = memory();
    EXPECT_EQ(zStreamWrStringA(stream.get(), (longest + 'x').c_str()), 0u);
    EXPECT_EQ(zErrorClass(), 2);
    // As wide text it is the length in UTF-8 that counts.
    const std::u16string wide(kLongest / 2 + 1, u'\xe4');
    EXPECT_EQ(zStreamWrStringW(stream.get(), wide.c_str()), 0u);
    EXPECT_EQ(zStreamSize(stream.get()), 0u);
}

TEST(MemStream, SeekStopsOneBehindTheEnd) {
    auto stream = holding("0123456789");
    const struct {
        int64_t offset;
        int32_t whence;
        int64_t tell;
        bool eof;
    } rows[] = {
        {3, 0, 3, false}, {4, 1, 7, false},  {-2, 1, 5, false},        {-1, 2, 9, false},
        {0, 2, 10, true}, {20, 0, 11, true}, {INT64_MAX, 1, 11, true}, {-5, 0, 0, false},
        {5, 9, 0, false}, {1, 2, 11, true},  {INT64_MIN, 2, 0, false},
    };
    for (const auto &row : rows) {
        EXPECT_TRUE(zStreamSeek(stream.get(), row.offset, row.whence));
        EXPECT_EQ(zStreamTell(stream.get()), row.tell) << row.offset << " from " << row.whence;
        EXPECT_EQ(zStreamEOF(stream.get()), row.eof) << row.offset << " from " << row.whence;
        char byte;
        EXPECT_TRUE(!row.eof || zStreamRead(stream.get(), &byte, 1) == 0);
    }
    EXPECT_EQ(contents(stream.get()), "0123456789");
}

// One behind the end of a full block lies outside of what the block promises to hold.
TEST(MemStream, WriteBehindTheEndOfAFullBlock) {
    for (uint32_t mode : {0u, 2u}) {
        auto stream = memory(mode, 8);
        zStreamWrite(stream.get(), "01234567", 8);
        zStreamSeek(stream.get(), 100, 0);
        EXPECT_EQ(zStreamWrite(stream.get(), "ab", 0), 0u);
        EXPECT_EQ(zStreamSize(stream.get()), 9u);
        EXPECT_EQ(zStreamWrite(stream.get(), "ab", 2), 2u);
        EXPECT_EQ(contents(stream.get()), std::string("01234567\0ab", 11));
    }
}

struct SocketPair : testing::Test {
    int ends[2] = {-1, -1};

    void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0); }
    void TearDown() override { close(ends[1]); }
    Socket *make(uint32_t references) {
        return new (calloc(1, sizeof(Socket))) Socket{references, malloc(16), ends[0], 0};
    }
    std::string heard() { // by the other end
        char bytes[8];
        return {bytes, static_cast<size_t>(read(ends[1], bytes, sizeof bytes))};
    }
};

// Bounds count bytes and nodes, containers among them; what is at a bound passes.
TEST(JsonStream, IsReadWithinBounds) {
    const struct {
        std::string text;
        uint64_t bytes, nodes;
        bool read, exceeded;
    } cases[] = {
        {"[1,\"a\",{}]", 10, 4, true, false},
        {"[1,\"a\",{}]", 9, 4, false, true},
        {"[1,\"a\",{}]", 10, 3, false, true},
        {"[1,\"a\",[]]", 10, 0, false, true},
        {"[1,\"a\",{]", 100, 100, false, false},
        {"[" + std::string(300'000, ' ') + "1]", 300'003, 2, true, false},
        {"[" + std::string(300'000, ' ') + "1]", 200'000, 2, false, true},
    };
    for (const auto &each : cases) {
        auto stream = guard(zMemStream(0, each.text.size()), zStreamFree);
        zStreamWrite(stream.get(), each.text.data(), each.text.size());
        zStreamRewind(stream.get());
        zev::JsonBounds bounds{each.bytes, each.nodes};
        const auto tree = guard(zev::json_read_bounded(stream.get(), bounds), zJsonFree);
        EXPECT_EQ(tree != nullptr, each.read) << each.bytes << " " << each.nodes;
        EXPECT_EQ(bounds.exceeded, each.exceeded) << each.bytes << " " << each.nodes;
    }
}

TEST_F(SocketPair, MovesBytesAndClosesWithTheLastOwner) {
    Socket *socket = make(2);
    auto first = guard(zSocketStream(socket, true), zStreamFree);
    auto second = guard(zSocketStream(socket, true), zStreamFree);
    auto borrowed = guard(zSocketStream(socket, false), zStreamFree);
    char bytes[8] = {};
    EXPECT_EQ(write(ends[1], "pong", 4), 4);
    EXPECT_EQ(zStreamRead(second.get(), bytes, sizeof bytes), 4u);
    EXPECT_STREQ(bytes, "pong");
    first.reset();
    borrowed.reset();
    EXPECT_EQ(zStreamWrite(second.get(), "still", 5), 5u);
    second.reset();
    EXPECT_EQ(heard(), "still");
    EXPECT_EQ(heard(), ""); // closed
}

TEST_F(SocketPair, APeerThatWentAwayIsAFailureNotASignal) {
    auto stream = guard(zSocketStream(make(1), true), zStreamFree);
    close(ends[1]);
    ends[1] = -1;
    EXPECT_TRUE(zStreamWrite(stream.get(), "x", 1) == 0 && zErrorCode() == EPIPE);
    EXPECT_FALSE(zStreamError(stream.get())); // a failed write leaves the stream readable
    char byte;
    EXPECT_EQ(zStreamRead(stream.get(), &byte, 1), 0u);
    EXPECT_FALSE(zStreamError(stream.get())); // the orderly end
}

} // namespace
