// The rule of names for owners and projects, which are directories on the server and segments of
// its URLs.
#include "common/errno.hpp"
#include "common/failure.hpp"
#include "zev/server.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

using namespace zev;

namespace {

constexpr size_t kNameMax = 256; // units, with the terminator
constexpr std::u16string_view kForbidden = u"\\<>/\":;?*|,=`@&#$^~%";
constexpr size_t kLoose = 13; // of them are forbidden without `strict`, too

} // namespace

bool zSNValid(const zwchar *text, bool strict) {
    if (!text || !*text) return fail_args();
    const std::u16string_view name = text;
    if (name.size() >= kNameMax) return fail_os(ENAMETOOLONG, text);
    const auto forbidden = strict ? kForbidden : kForbidden.substr(0, kLoose);
    return name.find_first_of(forbidden) == name.npos ? true : fail_os(EINVAL, text);
}
