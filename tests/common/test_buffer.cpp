// Buffer: what is behind the end, and where it grows.
#include "common/buffer.hpp"

#include "support.hpp"

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
    ASSERT_EQ(buffer_write(&buffer, "ef", 2), 2u);
    EXPECT_EQ(buffer.capacity, 4102u);
    EXPECT_TRUE(is_terminated());
    ASSERT_TRUE(buffer_seek(&buffer, 1, 0));
    ASSERT_EQ(buffer_write(&buffer, "BC", 2), 2u); // inside: the end stays
    EXPECT_EQ(content(), "aBCdef");
    EXPECT_FALSE(buffer_reserve(&buffer, UINT64_MAX - 2));
    EXPECT_EQ(zErrorClass(), 1);
}

} // namespace
