// The file of remembered logins, %APPDATA%/Tessavane/ZEV/zev.simple: UTF-8 JSON, an object with a
// member for each login.
//
//   <40 hexadecimal digits>   object; the SHA-1 of the two texts that name it, with "/" between, in
//                             UTF-16 little-endian
//     user                    string, the login
//     code                    string, the wire form of the password
//
// It opens accounts, so only its user may read it: the directories of its own have mode 0700, the
// file 0600. It is replaced whole. A text that is no such file counts as none, and members that are
// no entry stay as they are. A file that can't be read is not replaced: it has the other logins.
#include "network/cookie.hpp"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "common/failure.hpp"
#include "common/limits.hpp"
#include "rms/password.hpp"
#include "system/os.hpp"
#include "zev/error.h"
#include "zev/login.h"
#include "zev/path.h"
#include "zev/stream.h"

#include <cerrno>

namespace zev {

std::u16string cookie_key(const zwchar *first, const zwchar *second) {
    if (!zStrvalidW(first) || !zStrvalidW(second)) return {};
    return wire_form((std::u16string(first) + u"/" + second).c_str());
}

namespace {

const zwchar *text_of(Json *entry, const zwchar *name) {
    const Json *node = zJsonObjectAt(entry, name);
    const zwchar *text = node && zJsonIsString(node) ? zJsonGetString(node) : nullptr;
    return text && zStrnlenW(text, Z_LOGIN_MAX) < Z_LOGIN_MAX ? text : nullptr;
}

// ---- The file

// The directory, and with `make` all that leads to it.
bool find_directory(zwchar *path, bool make) {
    if (!zPathGetHome(path)) return raise_not_found(u"%APPDATA%");
    if (make && !os::make_dirs(path)) return fail_errno(path);
    for (const zwchar *name : {u"Tessavane", u"ZEV"}) {
        if (!zPathAppend(path, name)) return false;
        if (make && !os::make_dir(path, 0700) && errno != EEXIST) return fail_errno(path);
    }
    return true;
}

bool find_file(zwchar *path, bool make_directory) {
    return find_directory(path, make_directory) && zPathAppend(path, u"zev.simple");
}

// The tree, null for a text that is no object, and for no file. False, raised, where it isn't known
// what is in it.
bool read_file(const zwchar *path, JsonGuard &tree) {
    const Owned<Stream, zStreamFree> stream(zFileStream(path, u"rb"));
    if (!stream) return zErrorClass() == error_class::kNotFound;
    JsonBounds bounds{limits::cookie_file, limits::cookie_file};
    tree.reset(json_read_bounded(stream.get(), bounds));
    if (zStreamError(stream.get())) return errno = EIO, fail_errno(path);
    if (!tree && zErrorClass() == error_class::kNoMemory) return false;
    if (tree && !zJsonIsObject(tree.get())) tree.reset();
    return true;
}

// A file that would be too long to be read again is not written.
bool write_file(const zwchar *path, const Json *tree) {
    uint64_t length = 0;
    const Narrow text = json_utf8(tree, &length);
    if (!text) return false;
    if (length > limits::cookie_file) return raise_range(path);
    return os::replace_file(path, text.get(), length, 0600) ? true : fail_errno(path);
}

} // namespace

bool cookie_find(Json *tree, const std::u16string &key, const zwchar **user, const zwchar **code) {
    Json *entry = tree && zJsonIsObject(tree) ? zJsonObjectAt(tree, key.c_str()) : nullptr;
    if (!entry || !zJsonIsObject(entry)) return false;
    *user = text_of(entry, u"user");
    *code = text_of(entry, u"code");
    return *user && *code;
}

bool cookie_put(Json *tree, const std::u16string &key, const zwchar *user, const zwchar *code) {
    JsonGuard entry(
        zJsonNewObject(u"user", zJsonNewString(user), u"code", zJsonNewString(code), nullptr));
    if (!entry || !zJsonObjectPut(tree, key.c_str(), entry.get())) return false;
    static_cast<void>(entry.release());
    return true;
}

} // namespace zev

using namespace zev;

namespace {

bool fits(const zwchar *text) { return text && zStrnlenW(text, Z_LOGIN_MAX) < Z_LOGIN_MAX; }

bool store(const std::u16string &key, const zwchar *user, const zwchar *code, Here at = {}) {
    zwchar path[Z_PATH_MAX];
    if (key.empty()) return false;
    if (!fits(user) || !fits(code)) return fail_args(at);
    if (!find_file(path, true)) return fail_raised(at);
    JsonGuard tree;
    if (!read_file(path, tree)) return fail_raised(at);
    if (!tree) tree.reset(zJsonNew(Z_JSON_OBJECT));
    if (!tree || !cookie_put(tree.get(), key, user, code)) return false;
    return write_file(path, tree.get()) ? true : fail_raised(at);
}

} // namespace

bool zCookieWrite(const zwchar *first, const zwchar *second, const zwchar *user,
                  const zwchar *code) try {
    return store(cookie_key(first, second), user, code);
} catch (...) {
    return fail_thrown();
}

bool zCookieWriteRaw(const zwchar *first, const zwchar *second, const zwchar *user,
                     const zwchar *password) try {
    const std::u16string key = cookie_key(first, second);
    if (!fits(password)) return store(key, user, nullptr);
    return store(key, user, wire_form(password).c_str());
} catch (...) {
    return fail_thrown();
}

bool zCookieRead(const zwchar *first, const zwchar *second, zwchar *user, zwchar *code) try {
    const std::u16string key = cookie_key(first, second);
    if (key.empty()) return false;
    if (!user || !code) return fail_args();
    zwchar path[Z_PATH_MAX];
    if (!find_file(path, false)) return false;
    JsonGuard tree;
    if (!read_file(path, tree)) return false;
    const zwchar *found_user = nullptr, *found_code = nullptr;
    if (!cookie_find(tree.get(), key, &found_user, &found_code)) return false;
    zStrcpyW(user, found_user);
    zStrcpyW(code, found_code);
    return true;
} catch (...) {
    return fail_thrown();
}

bool zCookieClear(const zwchar *first, const zwchar *second) try {
    const std::u16string key = cookie_key(first, second);
    if (key.empty()) return false;
    zwchar path[Z_PATH_MAX];
    if (!find_file(path, false)) return true;
    JsonGuard tree;
    if (!read_file(path, tree) || !tree || !zJsonObjectHas(tree.get(), key.c_str())) return true;
    if (!zJsonObjectRemove(tree.get(), key.c_str())) return false;
    return write_file(path, tree.get()) ? true : fail_raised();
} catch (...) {
    return fail_thrown();
}
