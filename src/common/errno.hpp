// Error numbers at the interface are those of one C runtime on every host; `errno` always holds
// the host's. They meet here and nowhere else: the ranges overlap, so library code hands `errno`
// to raise_errno or the fail functions and never a host number to zRaiseStdErr.
#pragma once

#include "common/failure.hpp"

#include <cerrno>

namespace zev {

enum class Err : int32_t {
    perm = 1,
    noent = 2,
    io = 5,
    badf = 9,
    again = 11,
    nomem = 12,
    acces = 13,
    exist = 17,
    xdev = 18,
    notdir = 20,
    isdir = 21,
    inval = 22,
    nospc = 28,
    range = 34,
    deadlk = 36,
    nametoolong = 38,
    nolck = 39,
    nosys = 40,
    notempty = 41,
    ilseq = 42,
    addrinuse = 100,
    addrnotavail = 101,
    afnosupport = 102,
    already = 103,
    badmsg = 104,
    canceled = 105,
    connaborted = 106,
    connrefused = 107,
    connreset = 108,
    destaddrreq = 109,
    hostunreach = 110,
    idrm = 111,
    inprogress = 112,
    isconn = 113,
    loop = 114,
    msgsize = 115,
    netdown = 116,
    netreset = 117,
    netunreach = 118,
    nobufs = 119,
    nodata = 120,
    nolink = 121,
    nomsg = 122,
    noprotoopt = 123,
    nosr = 124,
    nostr = 125,
    notconn = 126,
    notrecoverable = 127,
    notsock = 128,
    notsup = 129,
    opnotsupp = 130,
    other = 131,
    overflow = 132,
    ownerdead = 133,
    proto = 134,
    protonosupport = 135,
    prototype = 136,
    time = 137,
    timedout = 138,
    txtbsy = 139,
    wouldblock = 140,
};

Err err_from_host(int host_errno);
int host_from_err(Err err);

// Raise with the number of `errno`, which stays as it is: a standard error, and a system error
// (class 9). What they give is the stored class.
int32_t raise_errno(const zwchar *format, ...);
int32_t raise_system(const zwchar *format, ...);

// The same with a path as message, as a failure value; not logged.
inline Failure fail_errno(About path = {}) { return fail_os(errno, path); }
Failure fail_system(const zwchar *path = nullptr);

} // namespace zev
