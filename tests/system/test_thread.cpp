#include "support.hpp"

#include <functional>

#include <pthread.h>

namespace {

std::vector<std::pair<char, char>> released; // key's mark, value's mark
char values[] = "abc";

void release_x(void *value) { released.emplace_back('x', *static_cast<char *>(value)); }
void release_y(void *value) { released.emplace_back('y', *static_cast<char *>(value)); }

void on_thread(std::function<void()> work) {
    const int64_t thread = zThreadCreate(
        [](void *argument) { (*static_cast<std::function<void()> *>(argument))(); }, &work);
    ASSERT_NE(thread, -1);
    EXPECT_TRUE(zThreadJoin(thread));
}

TEST(Thread, DestructorsInKeyOrder) {
    using Released = std::vector<std::pair<char, char>>;
    Threadkey first, second, plain, maker;
    ASSERT_OK(zThreadkeyCreate(&maker, [](void *) { // as one that raises first of all
        Threadkey own;
        if (zThreadkeyCreate(&own, nullptr)) zThreadkeyDelete(&own);
    }));
    ASSERT_OK(zThreadkeyCreate(&first, release_x));
    ASSERT_OK(zThreadkeyCreate(&second, release_y));
    ASSERT_OK(zThreadkeyCreate(&plain, nullptr));
    zThreadkeySet(&first, values + 2);

    on_thread([&] {
        EXPECT_EQ(zThreadkeyGet(&first), nullptr); // each thread has its own
        EXPECT_TRUE(zThreadCleanup());
        EXPECT_EQ(released, Released{});
        zThreadkeySet(&second, values + 1);
        zThreadkeySet(&first, values);
        zThreadkeySet(&plain, values);
        zThreadkeySet(&maker, values);
        EXPECT_TRUE(zThreadCleanup());
        EXPECT_EQ(released, (Released{{'x', 'a'}, {'y', 'b'}}));
        EXPECT_EQ(zThreadkeyGet(&first), nullptr);
    });
    released.clear();
    on_thread([&] { // without zThreadCleanup, and by the short way out
        zThreadkeySet(&second, values + 1);
        pthread_exit(nullptr);
    });
    EXPECT_EQ(released, (Released{{'y', 'b'}}));
    EXPECT_EQ(zThreadkeyGet(&first), values + 2);
    released.clear();
    EXPECT_FALSE(zThreadJoin(zThreadSelf()));
    for (Threadkey *key : {&first, &second, &plain, &maker}) zThreadkeyDelete(key);
    on_thread([] { zThreadCleanup(); });
    EXPECT_EQ(released, Released{});
}

} // namespace
