#include "common/buffer.hpp"

#include "support.hpp"

#include <cstring>

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
    EXPECT_TRUE(is_terminated());
    ASSERT_TRUE(buffer_seek(&buffer, 1, 0));
    ASSERT_EQ(buffer_write(&buffer, "BC", 2), 2u); // inside: the end stays
    EXPECT_EQ(content(), "aBCdef");
    EXPECT_FALSE(buffer_reserve(&buffer, UINT64_MAX - 2));
    EXPECT_EQ(zErrorClass(), 1);
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

} // namespace
