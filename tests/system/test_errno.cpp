#include "common/errno.hpp"

#include "support.hpp"

#include <cerrno>
#include <map>
#include <set>

using namespace zev;

namespace {

TEST(Errno, ThereAndBack) {
    const std::map<int, Err> kOneWay = {
        {EDQUOT, Err::nospc}, {ENOTBLK, Err::other}, {EHWPOISON, Err::other}};
    std::set<Err> seen;
    for (int host = 0; host <= EHWPOISON; ++host) {
        const Err err = err_from_host(host);
        if (auto at = kOneWay.find(host); at != kOneWay.end()) {
            EXPECT_EQ(err, at->second) << host;
        } else if (err != Err::other) { // a number of its own, and the way back
            EXPECT_TRUE(seen.insert(err).second) << host;
            EXPECT_EQ(host_from_err(err), host);
        }
    }
    EXPECT_EQ(seen.size(), 77u);
    // The first and the last of either run of numbers that differ.
    for (auto [host, err] :
         {std::pair{EDEADLK, 36}, {EILSEQ, 42}, {EADDRINUSE, 100}, {ETXTBSY, 139}})
        EXPECT_EQ(static_cast<int>(err_from_host(host)), err);
    for (auto [err, host] :
         {std::pair{131, EIO}, {130, EOPNOTSUPP}, {140, EAGAIN}, {15, EIO}, {9999, EIO}})
        EXPECT_EQ(host_from_err(static_cast<Err>(err)), host);
}

// A host number that means something else outside must not leak: 103, 104 and 131 overlap.
TEST(Errno, RaisedOutsideKeptInside) {
    errno = ECONNRESET;
    EXPECT_FALSE(bool(fail_system(u"100%s")));
    EXPECT_TRUE(zErrorClass() == 9 && zErrorCode() == 108 && errno == ECONNRESET);
    EXPECT_EQ(test::narrow(zErrorMsg()), "100%s");
}

} // namespace
