#include "system/errno.hpp"

#include "support.hpp"

#include <cerrno>

using namespace zev;

namespace {

constexpr struct {
    int host, err;
} kDiffering[] = {
    {EDEADLK, 36},       {ENAMETOOLONG, 38},     {ENOLCK, 39},       {ENOSYS, 40},
    {ENOTEMPTY, 41},     {EILSEQ, 42},           {EADDRINUSE, 100},  {EADDRNOTAVAIL, 101},
    {EAFNOSUPPORT, 102}, {EALREADY, 103},        {EBADMSG, 104},     {ECANCELED, 105},
    {ECONNABORTED, 106}, {ECONNREFUSED, 107},    {ECONNRESET, 108},  {EDESTADDRREQ, 109},
    {EHOSTUNREACH, 110}, {EIDRM, 111},           {EINPROGRESS, 112}, {EISCONN, 113},
    {ELOOP, 114},        {EMSGSIZE, 115},        {ENETDOWN, 116},    {ENETRESET, 117},
    {ENETUNREACH, 118},  {ENOBUFS, 119},         {ENODATA, 120},     {ENOLINK, 121},
    {ENOMSG, 122},       {ENOPROTOOPT, 123},     {ENOSR, 124},       {ENOSTR, 125},
    {ENOTCONN, 126},     {ENOTRECOVERABLE, 127}, {ENOTSOCK, 128},    {ENOTSUP, 129},
    {EOVERFLOW, 132},    {EOWNERDEAD, 133},      {EPROTO, 134},      {EPROTONOSUPPORT, 135},
    {EPROTOTYPE, 136},   {ETIME, 137},           {ETIMEDOUT, 138},   {ETXTBSY, 139},
};

TEST(Errno, ThereAndBack) {
    for (auto [host, err] : kDiffering) {
        EXPECT_EQ(static_cast<int>(err_from_host(host)), err) << host;
        EXPECT_EQ(host_from_err(static_cast<Err>(err)), host) << err;
    }
    for (int same = 0; same <= ERANGE; ++same) {
        if (same == ENOTBLK || same == ETXTBSY) continue;
        EXPECT_EQ(static_cast<int>(err_from_host(same)), same);
        EXPECT_EQ(host_from_err(static_cast<Err>(same)), same);
    }
}

TEST(Errno, OneWay) {
    EXPECT_EQ(err_from_host(EDQUOT), Err::nospc);
    EXPECT_EQ(host_from_err(Err::nospc), ENOSPC);
    EXPECT_EQ(err_from_host(ENOTBLK), Err::other);
    EXPECT_EQ(err_from_host(EHWPOISON), Err::other);
    EXPECT_EQ(host_from_err(Err::other), EIO);
    EXPECT_EQ(host_from_err(Err::opnotsupp), EOPNOTSUPP);
    EXPECT_EQ(host_from_err(Err::wouldblock), EAGAIN);
    EXPECT_EQ(host_from_err(static_cast<Err>(15)), EIO);
    EXPECT_EQ(host_from_err(static_cast<Err>(9999)), EIO);
}

// A host number that means something else outside must not leak: 103, 104 and 131 overlap.
TEST(Errno, RaisedOutsideKeptInside) {
    errno = ECONNRESET;
    raise_errno(u"%s", u"peer");
    EXPECT_EQ(zErrorCode(), 108);
    EXPECT_EQ(errno, ECONNRESET);
    errno = ENAMETOOLONG;
    EXPECT_FALSE(bool(fail_system(u"100%s")));
    EXPECT_EQ(zErrorClass(), 9);
    EXPECT_EQ(zErrorCode(), 38);
    EXPECT_EQ(test::narrow(zErrorMsg()), "100%s");
    EXPECT_EQ(errno, ENAMETOOLONG);
}

} // namespace
