// The login of this process, one record for all threads: whoever reads it has the texts of one
// zLoginInfoSet.
#include "zev/login.h"

#include "common/failure.hpp"
#include "zev/str.h"

#include <algorithm>
#include <mutex>

using namespace zev;

namespace {

struct Login {
    zwchar user[Z_LOGIN_MAX], second[Z_LOGIN_MAX], password[Z_LOGIN_MAX];
};

std::mutex guard;
Login login; // an empty user is none

bool fits(const zwchar *text) { return zStrnlenW(text, Z_LOGIN_MAX) < Z_LOGIN_MAX; }

void copy(zwchar *to, const zwchar *from) { std::copy_n(from, zStrlenW(from) + 1, to); }

} // namespace

bool zLoginInfoSet(const zwchar *user, const zwchar *second, const zwchar *password) {
    if (!user || !password) return fail_args();
    if (!second) second = u"";
    if (!fits(user) || !fits(second) || !fits(password)) return fail_args();
    Login fresh{};
    copy(fresh.user, user);
    copy(fresh.second, second);
    copy(fresh.password, password);
    zStrlwrW(fresh.user);
    zStrlwrW(fresh.second);
    const std::lock_guard lock(guard);
    login = fresh;
    return true;
}

bool zLoginInfoGet(zwchar *user, zwchar *second, zwchar *password) {
    if (!user || !password) return fail_args();
    const std::lock_guard lock(guard);
    if (!*login.user) return false;
    copy(user, login.user);
    if (second) copy(second, login.second);
    copy(password, login.password);
    return true;
}

bool zLoginInfoClear() {
    const std::lock_guard lock(guard);
    login = {};
    return true;
}
