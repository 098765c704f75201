// Raise, log, return in one expression; what stands behind failure.hpp.
#include "common/failure.hpp"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "zev/log.h"

#include <exception>
#include <new>

namespace zev {

namespace {

template <class F> Failure raise(F raiser, About what) {
    if (what.narrow) {
        raiser(u"%hs", what.narrow);
    } else if (what.wide) {
        raiser(u"%s", what.wide);
    } else {
        raiser(nullptr);
    }
    return {};
}

} // namespace

void log_raised(LogLevel level, Here at, LogFacility facility) {
    zLogReport(at.file, at.line, level, facility, u"%s", zErrorDetail());
}

Failure fail_args(Here at) {
    zRaiseInvalidArgs(nullptr);
    return fail_raised(at);
}

Failure fail_memory(Here at) {
    zRaiseNoMemory(nullptr);
    log_raised(kCritical, at);
    return {};
}

Failure fail_git(int code) {
    zRaiseGitErr(code, nullptr);
    return {};
}

Failure fail_raised(Here at) {
    log_raised(kError, at);
    return {};
}

Failure fail_os(int host_errno, About what) {
    const auto code = static_cast<int32_t>(err_from_host(host_errno));
    return raise([&](auto... text) { zRaiseStdErr(code, text...); }, what);
}

Failure raise_not_found(About what) { return raise(zRaiseNotFound, what); }
Failure raise_exists(About what) { return raise(zRaiseAlreadyExists, what); }
Failure raise_range(About what) { return raise(zRaiseOutOfRange, what); }
Failure raise_canceled() { return raise(zRaiseCanceled, {}); }
Failure raise_locked(About what) { return raise(zRaiseLocked, what); }
Failure raise_kvdb(About what) { return raise(zRaiseKvdbErr, what); }
Failure raise_uv(int code, About what) {
    return raise([&](auto... text) { zRaiseUvErr(code, text...); }, what);
}
Failure raise_module(int host_errno, const zwchar *path, const zwchar *reason) {
    const auto code = static_cast<int32_t>(err_from_host(host_errno));
    return zRaiseError(error_class::kSystem, code, path, reason), Failure{};
}
// The resolver's codes are negative, and no errno is.
Failure raise_socket(int code, About what) {
    const int32_t number = code < 0 ? code : static_cast<int32_t>(err_from_host(code));
    return raise([&](auto... text) { zRaiseWsaErr(number, text...); }, what);
}
Failure raise_net(int code, const zwchar *reason) {
    return zRaiseNetErr(code, reason, nullptr), Failure{};
}
Failure raise_other(const zwchar *reason, About what) {
    return raise([&](auto... text) { zRaiseOtherErr(reason, text...); }, what);
}
Failure raise_args(About what) { return raise(zRaiseInvalidArgs, what); }

KeptFailure::KeptFailure()
    : class_(zErrorClass()), code_(zErrorCode()), message_(zErrorMsg()), reason_(zErrorReason()) {}
KeptFailure::~KeptFailure() { zRaiseError(class_, code_, message_.c_str(), reason_.c_str()); }

Failure fail_thrown(Here at) {
    try {
        throw;
    } catch (const std::bad_alloc &) {
        return fail_memory(at);
    } catch (const std::exception &thrown) {
        zRaiseOtherErr(nullptr, u"%hs", thrown.what());
    } catch (...) {
        zRaiseOtherErr(u"unknown exception", nullptr);
    }
    return fail_raised(at);
}

} // namespace zev
