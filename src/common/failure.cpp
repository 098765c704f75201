#include "common/failure.hpp"

#include "common/errno.hpp"
#include "zev/log.h"

#include <exception>
#include <new>

namespace zev {

namespace {

enum { kCritical = 2, kError = 3, kFacilityZev = 4 };

} // namespace

void log_raised(int level, Here at) {
    zLogReport(at.file, at.line, level, kFacilityZev, u"%s", zErrorDetail());
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

Failure fail_std(int host_errno) {
    zRaiseStdErr(static_cast<int32_t>(err_from_host(host_errno)), nullptr);
    return {};
}

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
