// The words are the C library's: libgit2's in the process's language, ours in English.
#include "common/told_errno.hpp"

#include "common/utf.hpp"
#include "zev/error.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace zev {

bool tells_errno(std::string_view reason, int number) {
    return reason.find(strerrordesc_np(number)) != reason.npos ||
           reason.find(strerror(number)) != reason.npos;
}

// LevelDB's text is the message, with no reason behind it.
bool raised_no_space() {
    const std::string detail = to_utf8(zErrorDetail());
    return tells_errno(detail, ENOSPC) || tells_errno(detail, EDQUOT);
}

} // namespace zev
