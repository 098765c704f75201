#include "common/buffer.hpp"

#include "support.hpp"

#include <cstring>
#include <vector>

namespace {

using namespace zev;

struct BufferTest : testing::Test {
    Buffer buffer = {};
    ~BufferTest() override { buffer_cleanup(&buffer); }

    std::string content() const { return {reinterpret_cast<char *>(buffer.data), buffer.size}; }
    bool is_terminated() const {
        return !buffer.data[buffer.size] &&
               (buffer.terminator == 1 || !buffer.data[buffer.size + 1]);
    }
};

TEST_F(BufferTest, GrowsAndStaysTerminated) {
    ASSERT_OK(buffer_init(&buffer, 0, 4));
    EXPECT_EQ(buffer_write(&buffer, "abcd", 4), 4u);
    EXPECT_EQ(buffer_room(&buffer), 0u);
    ASSERT_EQ(buffer_write(&buffer, "ef", 2), 2u);
    EXPECT_EQ(buffer.capacity, 4102u);
    EXPECT_EQ(buffer_tell(&buffer), 6);
    EXPECT_TRUE(is_terminated());
    ASSERT_TRUE(buffer_seek(&buffer, 1, 0));
    ASSERT_EQ(buffer_write(&buffer, "BC", 2), 2u); // inside: the end stays
    EXPECT_EQ(content(), "aBCdef");
    EXPECT_FALSE(buffer_reserve(&buffer, UINT64_MAX - 2));
    EXPECT_EQ(zErrorClass(), 1);
    EXPECT_EQ(buffer_write(&buffer, nullptr, 1), 0u);
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_FALSE(buffer_init(&buffer, 3, 0));
}

TEST_F(BufferTest, SeekClampsAndReadsEndThere) {
    ASSERT_OK(buffer_init(&buffer, 0, 3));
    ASSERT_EQ(buffer_write(&buffer, "abc", 3), 3u);
    const struct {
        int64_t offset;
        int32_t whence;
        int64_t position;
    } rows[] = {{-5, 0, 0},        {2, 0, 2},         {-1, 1, 1}, {-1, 2, 2},
                {3, 0, 3},         {4, 0, 4}, // one beyond the end, as is whatever lies further
                {INT64_MAX, 2, 4}, {INT64_MAX, 1, 4}, {1, 9, 0}};
    for (auto [offset, whence, position] : rows) {
        ASSERT_TRUE(buffer_seek(&buffer, offset, whence));
        EXPECT_EQ(buffer_tell(&buffer), position) << offset << " from " << whence;
    }
    char out[8] = {};
    EXPECT_EQ(buffer_read(&buffer, out, sizeof out), 3u);
    EXPECT_EQ(buffer_read(&buffer, out, 1), 0u);
    ASSERT_TRUE(buffer_seek(&buffer, 9, 0));
    EXPECT_EQ(buffer_read(&buffer, out, 1), 0u);
    ASSERT_EQ(buffer_write(&buffer, "x", 1), 1u); // the gap is a zero
    EXPECT_EQ(content(), std::string("abc\0x", 5));
}

TEST_F(BufferTest, ConvertsTextToItsKind) {
    struct {
        uint32_t kind;
        uint64_t bytes;
    } rows[] = {{1, 2 + 4 + 3}, {2, 2 + 4 + 6}};
    for (auto [kind, bytes] : rows) {
        ASSERT_OK(buffer_init(&buffer, kind, 0));
        ASSERT_TRUE(buffer_add_wide(&buffer, u"\u00E9"));
        EXPECT_EQ(buffer.size, 2u);
        ASSERT_TRUE(buffer_add_narrow(&buffer, "\xF0\x9F\x98\x80"));
        ASSERT_TRUE(buffer_add_format(&buffer, u"%s%d", u"a", 10));
        EXPECT_EQ(buffer.size, bytes);
        EXPECT_TRUE(is_terminated());
        buffer_cleanup(&buffer);
    }
    ASSERT_OK(buffer_init(&buffer, 0, 1)); // bytes take text as it is
    ASSERT_TRUE(buffer_add_wide(&buffer, u"a") && buffer_add_narrow(&buffer, "b"));
    EXPECT_EQ(content(), std::string("a\0b", 3));
}

// Gives `left` bytes, then fails.
struct FailingStream {
    Stream head;
    uint64_t left;
};

TEST_F(BufferTest, TakesNothingFromAFailedStream) {
    FailingStream source = {};
    source.head.read = [](Stream *stream, void *target, uint64_t count) {
        auto *self = reinterpret_cast<FailingStream *>(stream);
        memset(target, 'x', count);
        return std::min(count,
                        std::exchange(self->left, self->left > count ? self->left - count : 0));
    };
    source.head.error = [](Stream *stream) {
        return !reinterpret_cast<FailingStream *>(stream)->left;
    };
    source.left = 10;
    ASSERT_OK(buffer_init(&buffer, 0, 4));
    EXPECT_EQ(buffer_write_stream(&buffer, &source.head, 8), 8u);
    EXPECT_EQ(buffer_write_stream(&buffer, &source.head, 8), 0u);
    EXPECT_EQ(content(), "xxxxxxxx");
    EXPECT_TRUE(is_terminated());
}

std::vector<int> gone;
template <int n> void note(void *) { gone.push_back(n); }

TEST(Recycle, PushesTheOldestOut) {
    gone.clear();
    Recycle ring;
    ASSERT_OK(zRecycleInit(&ring, 1));
    EXPECT_EQ(ring.capacity, 8u);
    int item = 0;
    ASSERT_TRUE(zRecyclePut(&ring, &item, note<0>) && zRecyclePut(&ring, nullptr, note<9>));
    for (int i = 0; i < 7; ++i) ASSERT_TRUE(zRecyclePut(&ring, &item, note<1>));
    EXPECT_TRUE(gone.empty());
    ASSERT_TRUE(zRecyclePut(&ring, malloc(1), nullptr));
    EXPECT_EQ(gone, std::vector<int>{0});
    ASSERT_TRUE(zRecycleCleanup(&ring));
    EXPECT_EQ(gone.size(), 8u);
    EXPECT_FALSE(zRecyclePut(&ring, &item, note<9>)); // no ring any more
    EXPECT_EQ(zErrorClass(), 2);
    zRecyleFree(zRecycleNew(100));
    zRecyleFree(nullptr);
}

TEST(Recycle, ConversionsLastFor1024Parkings) {
    const char *first = zStrtoutf8(u"first");
    for (int i = 0; i < 1023; ++i) ASSERT_TRUE(zStrfromutf8("x"));
    EXPECT_STREQ(first, "first");
    gone.clear();
    int item = 0;
    ASSERT_TRUE(zGlobalRecyclePut(&item, note<1>));
    for (int i = 0; i < 1023; ++i) ASSERT_TRUE(zStrtoutf8(u"x"));
    EXPECT_TRUE(gone.empty());
    ASSERT_TRUE(zStrtoutf8(u"x"));
    EXPECT_EQ(gone.size(), 1u);
}

} // namespace
