// A URI from outside, read, written, escaped and appended: whatever it is, the record and the
// texts hold to their limits.
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "zev/uri.h"

#include <cstdlib>
#include <string>

namespace {

using namespace zev;

void require(bool holds) {
    if (!holds) abort();
}

void check_escape(const std::u16string &text) {
    zwchar *held = zStrdupW(text.c_str());
    const bool escaped = zUriEscape(&held);
    const Wide first(held);
    if (!escaped) return;
    held = zStrdupW(first.get());
    require(zUriEscape(&held) && zStrsameW(held, first.get()));
    require(zUriUnescape(&held) && zStrlenW(held) <= Z_URL_MAX);
    zStrfreeW(held);
}

void check_record(Uri *uri) {
    const zwchar *text = zUriStringfy(uri);
    require(text && zStrlenW(text) < Z_URL_MAX && *zUriPath(uri) == u'/');
    const Owned<Uri, zUriFree> copy(zUriDup(uri));
    require(copy && zStrsameW(zUriStringfy(copy.get()), text));
    zUriParse(uri, text); // from its own text
    zUriParseQuery(copy.get(), zUriPath(copy.get()));
    zUriAppendPath(copy.get(), zUriPath(copy.get()));
    require(zUriStringfy(copy.get()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    const std::u16string text = to_wide(bytes);
    check_escape(text);
    if (const Owned<Uri, zUriFree> uri(zUriNew(text.c_str())); uri) check_record(uri.get());
    zwchar buffer[Z_URL_MAX] = {};
    const size_t middle = text.size() / 2;
    zUrlBuild(buffer, text.substr(0, middle).c_str(), text.substr(middle).c_str(),
              static_cast<const zwchar *>(nullptr));
    require(zStrnlenW(buffer, Z_URL_MAX) < Z_URL_MAX);
    return 0;
}
