// Who failed too often to log in is shut out, for a while.
#include "support.hpp"

#include "rms/throttle.hpp"
#include "system/os.hpp"

namespace {

int64_t now_told, wall_told;

TEST(Throttle, ShutsOutAfterTenWithinAMinute) {
    const auto kept = zev::os::calls;
    zev::os::calls.steady = [] { return now_told; };
    zev::os::calls.now = [] { return wall_told; };
    const auto second = [](int n) { now_told = n * 1'000'000'000ll; };
    zev::Throttle throttle;
    const auto is_shut = [&](const zwchar *login, const zwchar *address) {
        return throttle.is_shut_out({login, address});
    };
    for (int i = 0; i < 10; ++i) {
        second(100 + 5 * i);
        EXPECT_FALSE(is_shut(u"ann", u"1.1.1.1")) << i;
        throttle.count_failure({u"Ann", u"1.1.1.1"});
    }
    EXPECT_TRUE(is_shut(u"ANN", u"2.2.2.2")); // the login from anywhere
    EXPECT_TRUE(is_shut(u"eve", u"1.1.1.1")); // from there any login
    EXPECT_FALSE(is_shut(u"eve", u"2.2.2.2"));
    EXPECT_FALSE(is_shut(u"", u""));
    second(159);
    for (const int64_t set : {int64_t{1} << 62, int64_t{0}}) {
        wall_told = set; // whatever somebody sets the machine's clock to
        EXPECT_TRUE(is_shut(u"ann", u""));
    }
    second(160); // the first is a minute old
    EXPECT_FALSE(is_shut(u"ann", u""));
    throttle.count_failure({u"ann", u""});
    EXPECT_TRUE(is_shut(u"ann", u""));
    // One network is one address, whatever the host in it.
    second(500);
    for (int i = 0; i < 10; ++i)
        throttle.count_failure({u"", test::wide("2001:db8::" + std::to_string(i))});
    EXPECT_TRUE(is_shut(u"", u"2001:db8::ffff:1"));
    EXPECT_FALSE(is_shut(u"", u"2001:db8:0:1::1"));
    // Where a socket takes both, an IPv4 address is one still.
    for (int i = 0; i < 10; ++i) throttle.count_failure({u"", u"::ffff:3.3.3.3"});
    EXPECT_TRUE(is_shut(u"", u"3.3.3.3"));
    EXPECT_FALSE(is_shut(u"", u"::ffff:4.4.4.4"));
    // Many logins, each tried once, do not fill the memory nor drop those of now.
    for (int i = 0; i < 10; ++i) throttle.count_failure({u"bob", u""});
    for (int i = 0; i < 5000; ++i) {
        second(501 + i / 1000);
        throttle.count_failure({test::wide("user" + std::to_string(i)), u""});
        if (i % 100 == 0) throttle.count_failure({u"bob", u""});
    }
    EXPECT_TRUE(is_shut(u"bob", u""));
    zev::os::calls = kept;
}

} // namespace
