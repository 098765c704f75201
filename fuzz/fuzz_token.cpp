// Line by line a pattern, a path and delimiters. What a route captures is a name wherever it is
// unescaped again, a client's query never stands in for it, and tokens hold no delimiters.
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "zev/token.h"
#include "zev/uri.h"

#include <cstdlib>
#include <string>

namespace {

using namespace zev;

constexpr zwchar kPlanted[] = u"/../planted"; // no route captures this

void require(bool holds) {
    if (!holds) abort();
}

std::u16string line(std::string_view &rest) {
    const std::string_view found = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(found.size() + 1, rest.size()));
    return std::u16string(to_wide(found).c_str()); // without what a zero byte ends
}

void check_tokens(const std::u16string &text, const std::u16string &delimiters) {
    const Owned<Token, zTokenFree> token(zTokenNew(text.c_str(), delimiters.c_str()));
    for (zTokenStart(token.get()); !zTokenDone(token.get()); zTokenStep(token.get())) {
        const std::u16string found = zTokenString(token.get());
        require(!found.empty() && found.find_first_of(delimiters) == found.npos);
    }
    require(zTokenRemain(token.get()));
}

// As a path without its escapes, with slashes around it.
void check_name(const zwchar *text) {
    zwchar *held = zStrdupW(text);
    for (uint64_t before = UINT64_MAX; zStrlenW(held) < before;) {
        before = zStrlenW(held);
        require(zUriUnescape(&held));
    }
    const std::u16string path = u"/" + std::u16string(held) + u"/";
    require(path.find(u"/../") == path.npos && path.find(u'\\') == path.npos);
    zStrfreeW(held);
}

void check_capture(const Uri *uri, const zwchar *name) {
    const zwchar *value = zUriQuery(uri, name);
    if (!value) return;
    require(!zStrsameW(value, kPlanted));
    check_name(value);
}

void check_route(const std::u16string &pattern, const std::u16string &path) {
    const Owned<Uri, zUriFree> uri(zUriNew(path.c_str()));
    const Owned<Token, zTokenFree> steps(zTokenNew(pattern.c_str(), u"/"));
    if (!uri) return;
    for (const zwchar *name : {u":owner", u":name", u":other", u":base"})
        zUriSetQuery(uri.get(), name, kPlanted);
    const bool matches = zUriCatchPath(uri.get(), pattern.c_str());
    const bool same = zStrsameW(zStrsafeW(zUriQuery(uri.get(), u":base")), kPlanted);
    require(matches != same);
    if (!matches) return;
    for (const zwchar *name : {u":other", u":base"}) check_capture(uri.get(), name);
    // Captures ahead of the first literal are not bound.
    zTokenStart(steps.get());
    while (!zTokenDone(steps.get()) && *zTokenString(steps.get()) == u':') zTokenStep(steps.get());
    for (; !zTokenDone(steps.get()); zTokenStep(steps.get()))
        if (*zTokenString(steps.get()) == u':') check_capture(uri.get(), zTokenString(steps.get()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    const std::u16string pattern = line(rest), path = line(rest), delimiters = line(rest);
    check_tokens(path, delimiters);
    check_route(pattern, path);
    return 0;
}
