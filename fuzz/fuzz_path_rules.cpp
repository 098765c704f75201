// AUTHZ of a working copy, then a zero byte and a path: any bytes are refused, or give every path
// the bits that its twin in another case and spelling has.
#include "common/utf.hpp"
#include "rms/path_rules.hpp"
#include "zev/error.h"
#include "zev/stream.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace zev;
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const std::string_view all(reinterpret_cast<const char *>(data), size);
    const std::string_view text = all.substr(0, all.find('\0'));
    const Owned<Stream, zStreamFree> stream(zMemStream(0, text.size()));
    zStreamWrite(stream.get(), text.data(), text.size());
    zStreamRewind(stream.get());
    JsonBounds bounds{1 << 20, 1 << 16};
    const JsonGuard tree(json_read_bounded(stream.get(), bounds));
    PathRules rules, fresh;
    if (!rules.read(tree.get())) return 0;
    fresh.read(tree.get());
    std::u16string path = to_wide(all.substr(std::min(text.size() + 1, size)));
    if (const size_t zero = path.find(u'\0'); zero != path.npos) path.resize(zero);
    const int32_t bits = rules.at(path);
    if (path.size() + 1 >= Z_PATH_MAX) return 0;
    std::u16string other = path;
    zStruprW(other.data());
    zStrlwrW(other.data());
    for (zwchar &unit : other)
        if (unit == u'/') unit = u'\\';
    rules.at(u"somewhere/else"); // what was looked up last doesn't count
    if (rules.at(path) != bits || fresh.at(path) != bits) abort();
    if (zStrcasesameW(path.c_str(), other.c_str()) && rules.at(other) != bits) abort();
    if (path.empty() || path.back() == u'/' || path.back() == u'\\') return 0;
    if (rules.at(path + u"/.gitkeep") != 0x70) abort();
    return 0;
}
