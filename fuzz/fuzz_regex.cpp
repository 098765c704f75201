// A pattern on the first line over the text of the others: groups are texts of the match, and the
// work is bounded, which the fuzzer's own limits of time and memory hold to.
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "zev/regex.h"

#include <cstdlib>
#include <cstring>
#include <string>

using namespace zev;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    const size_t end = std::min(bytes.find('\n'), size);
    const std::string pattern = bytes.substr(0, end), text = bytes.substr(std::min(end + 1, size));
    const Owned<Vector, zMatchFreeA> list(zRegexCatchA(text.c_str(), pattern.c_str()));
    if (!list) return 0;
    if (!zMatchCountA(list.get())) abort();
    for (uint64_t i = 0; i < zMatchCountA(list.get()); ++i)
        if (!strstr(text.c_str(), zMatchResultA(list.get(), i))) abort();
    const Owned<Vector, zMatchFreeW> wide(
        zRegexCatchW(to_wide(text).c_str(), to_wide(pattern).c_str()));
    if (!wide || zMatchCountW(wide.get()) != zMatchCountA(list.get())) abort();
    return 0;
}
