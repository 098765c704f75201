// The words are the C library's, in no language but English.
#include "common/told_errno.hpp"

#include "common/utf.hpp"
#include "zev/error.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace zev {

bool tells_errno(std::string_view reason, int number) {
    return reason.find(strerrordesc_np(number)) != reason.npos;
}

bool raised_no_space() {
    const std::string reason = to_utf8(zErrorReason());
    return tells_errno(reason, ENOSPC) || tells_errno(reason, EDQUOT);
}

} // namespace zev
