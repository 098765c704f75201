#include "common/errno.hpp"

#include "support.hpp"

#include <cerrno>

using namespace zev;

namespace {

// A host number that means something else outside must not leak: 103, 104 and 131 overlap.
TEST(Errno, RaisedOutsideKeptInside) {
    errno = ECONNRESET;
    EXPECT_FALSE(bool(fail_system(u"100%s")));
    EXPECT_TRUE(zErrorClass() == 9 && zErrorCode() == 108 && errno == ECONNRESET);
    EXPECT_EQ(test::narrow(zErrorMsg()), "100%s");
}

} // namespace
