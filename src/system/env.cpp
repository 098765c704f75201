// The environment in wide text. An empty value removes a variable.
#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/file.h"
#include "zev/str.h"

#include <cerrno>
#include <cstdlib>
#include <string>

using namespace zev;

namespace {

// Sets a variable from "NAME=value"; an empty value removes it.
bool put(const std::string &assignment) {
    const size_t equals = assignment.find('=');
    if (equals != 0 && equals != assignment.npos)
        return os::set_env(assignment.substr(0, equals).c_str(), assignment.c_str() + equals + 1);
    errno = EINVAL;
    return false;
}

} // namespace

const zwchar *zGetenv(const zwchar *name) try {
    if (!name) return fail_args();
    const char *value = getenv(to_utf8(name).c_str());
    return value ? zStrfromutf8(value) : nullptr;
} catch (...) {
    return fail_thrown();
}

int32_t zPutenv(const zwchar *assignment) try {
    if (!assignment) return fail_args(), -1;
    if (put(to_utf8(assignment))) return 0;
    return fail_errno(assignment), -1;
} catch (...) {
    return fail_thrown(), -1;
}

int32_t zSetenv(const zwchar *name, const zwchar *value) try {
    if (!name || !value) return fail_args(), static_cast<int32_t>(Err::inval);
    std::string text = to_utf8(name);
    if (text.find('=') == text.npos && put(text + '=' + to_utf8(value))) return 0;
    if (text.find('=') != text.npos) errno = EINVAL;
    const Err err = err_from_host(errno);
    return fail_errno(name), static_cast<int32_t>(err);
} catch (...) {
    return fail_thrown(), static_cast<int32_t>(Err::nomem);
}
