// Of libgit2's failures and LevelDB's only the text tells it.
#include "common/no_space.hpp"

#include "common/utf.hpp"
#include "zev/error.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace zev {

bool raised_no_space() {
    const std::string reason = to_utf8(zErrorReason());
    const auto tells = [&](int code) { return reason.find(strerrordesc_np(code)) != reason.npos; };
    return tells(ENOSPC) || tells(EDQUOT);
}

} // namespace zev
