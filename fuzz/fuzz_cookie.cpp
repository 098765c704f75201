// The file of remembered logins: any bytes give an entry that fits its buffers, or none; and what
// is put in is found again, beside what was there.
#include "network/cookie.hpp"
#include "zev/error.h"
#include "zev/login.h"
#include "zev/stream.h"

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace zev;
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const Owned<Stream, zStreamFree> stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    JsonBounds bounds{1 << 20, 1 << 20};
    const JsonGuard tree(json_read_bounded(stream.get(), bounds));
    const std::u16string key = cookie_key(u"http://plant:3001", u"zev"),
                         other = cookie_key(u"a", u"b");
    const zwchar *user = nullptr, *code = nullptr;
    const bool found = cookie_find(tree.get(), key, &user, &code);
    if (!found) return 0;
    if (zStrlenW(user) >= Z_LOGIN_MAX || zStrlenW(code) >= Z_LOGIN_MAX) abort();
    const std::u16string before = user;
    if (!cookie_put(tree.get(), other, u"eva", u"0")) abort();
    if (!cookie_find(tree.get(), key, &user, &code) || before != user) abort();
    if (!cookie_find(tree.get(), other, &user, &code) || !zStrsameW(user, u"eva")) abort();
    return 0;
}
