// The table of the error numbers that differ between the interface and the host.
#include "common/errno.hpp"

#include "common/format.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace zev {

namespace {

struct Pair {
    int host;
    Err err;
};

// Numbers that differ, in the order of the host's so that both ways read well in one table.
constexpr Pair kPairs[] = {
    {ETXTBSY, Err::txtbsy},
    {EDEADLK, Err::deadlk},
    {ENAMETOOLONG, Err::nametoolong},
    {ENOLCK, Err::nolck},
    {ENOSYS, Err::nosys},
    {ENOTEMPTY, Err::notempty},
    {ELOOP, Err::loop},
    {ENOMSG, Err::nomsg},
    {EIDRM, Err::idrm},
    {ENOSTR, Err::nostr},
    {ENODATA, Err::nodata},
    {ETIME, Err::time},
    {ENOSR, Err::nosr},
    {ENOLINK, Err::nolink},
    {EPROTO, Err::proto},
    {EBADMSG, Err::badmsg},
    {EOVERFLOW, Err::overflow},
    {EILSEQ, Err::ilseq},
    {ENOTSOCK, Err::notsock},
    {EDESTADDRREQ, Err::destaddrreq},
    {EMSGSIZE, Err::msgsize},
    {EPROTOTYPE, Err::prototype},
    {ENOPROTOOPT, Err::noprotoopt},
    {EPROTONOSUPPORT, Err::protonosupport},
    {ENOTSUP, Err::notsup},
    {EAFNOSUPPORT, Err::afnosupport},
    {EADDRINUSE, Err::addrinuse},
    {EADDRNOTAVAIL, Err::addrnotavail},
    {ENETDOWN, Err::netdown},
    {ENETUNREACH, Err::netunreach},
    {ENETRESET, Err::netreset},
    {ECONNABORTED, Err::connaborted},
    {ECONNRESET, Err::connreset},
    {ENOBUFS, Err::nobufs},
    {EISCONN, Err::isconn},
    {ENOTCONN, Err::notconn},
    {ETIMEDOUT, Err::timedout},
    {ECONNREFUSED, Err::connrefused},
    {EHOSTUNREACH, Err::hostunreach},
    {EALREADY, Err::already},
    {EINPROGRESS, Err::inprogress},
    {ECANCELED, Err::canceled},
    {EOWNERDEAD, Err::ownerdead},
    {ENOTRECOVERABLE, Err::notrecoverable},
};
// Numbers of one side only.
constexpr Pair kOutward[] = {{EDQUOT, Err::nospc}};
constexpr Pair kInward[] = {{EOPNOTSUPP, Err::opnotsupp}, {EAGAIN, Err::wouldblock}};

bool is_common(int number) {
    return number == 0 || (number >= EPERM && number <= EFAULT) ||
           (number >= EBUSY && number <= ENOTTY) || (number >= EFBIG && number <= ERANGE);
}

Failure as_failure(int32_t (*raise)(const zwchar *, ...), const zwchar *path) {
    path ? raise(u"%s", path) : raise(nullptr);
    return {};
}

int32_t raise_with(int32_t (*raise)(int32_t, const zwchar *, ...), const zwchar *format,
                   va_list arguments) {
    const int number = errno;
    const auto code = static_cast<int32_t>(err_from_host(number));
    zwchar *text = format ? format_wide_dup(format, arguments) : nullptr;
    errno = number; // tells numbers apart that are 131 outside
    const int32_t raised = text ? raise(code, u"%s", text) : raise(code, nullptr);
    free(text);
    errno = number;
    return raised;
}

} // namespace

Err err_from_host(int host_errno) {
    if (is_common(host_errno)) return static_cast<Err>(host_errno);
    auto same = [=](const Pair &pair) { return pair.host == host_errno; };
    if (auto pair = std::find_if(std::begin(kPairs), std::end(kPairs), same);
        pair != std::end(kPairs))
        return pair->err;
    if (auto pair = std::find_if(std::begin(kOutward), std::end(kOutward), same);
        pair != std::end(kOutward))
        return pair->err;
    return Err::other;
}

int host_from_err(Err err) {
    if (is_common(static_cast<int>(err))) return static_cast<int>(err);
    auto same = [=](const Pair &pair) { return pair.err == err; };
    if (auto pair = std::find_if(std::begin(kPairs), std::end(kPairs), same);
        pair != std::end(kPairs))
        return pair->host;
    if (auto pair = std::find_if(std::begin(kInward), std::end(kInward), same);
        pair != std::end(kInward))
        return pair->host;
    return EIO;
}

int32_t raise_errno(const zwchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t raised = raise_with(zRaiseStdErr, format, arguments);
    va_end(arguments);
    return raised;
}

int32_t raise_system(const zwchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t raised = raise_with(zRaiseWinErr, format, arguments);
    va_end(arguments);
    return raised;
}

Failure fail_system(const zwchar *path) { return as_failure(raise_system, path); }

} // namespace zev
