// Users of the server.
#include "rms/admin.hpp"
#include "rms/password.hpp"

using namespace zev;

int32_t zAdminCreateUser(Admin *admin, const zwchar *login, const zwchar *name,
                         const zwchar *password, const zwchar *mail, bool power, bool lock) try {
    std::u16string wire;
    if (password && is_short(password)) password = (wire = wire_form(password)).c_str();
    return Command(admin, u"user", u"create")
        .name(u"login", login)
        .given(u"name", name)
        .text(u"password", password)
        .given(u"mail", mail)
        .flag(u"power", power)
        .flag(u"lock", lock)
        .run();
} catch (...) {
    return fail_thrown(), Z_AUTH_NO_ANSWER;
}

int32_t zAdminModifyUser(Admin *admin, const zwchar *login, const zwchar *newlogin,
                         const zwchar *name, const zwchar *mail, bool power, bool lock) {
    return Command(admin, u"user", u"modify")
        .name(u"login", login)
        .maybe_name(u"newlogin", newlogin)
        .given(u"name", name)
        .given(u"mail", mail)
        .flag(u"power", power)
        .flag(u"lock", lock)
        .run();
}

int32_t zAdminDeleteUser(Admin *admin, const zwchar *login) {
    return Command(admin, u"user", u"delete").name(u"login", login).refuse_own(login).run();
}

int32_t zAdminResetPassword(Admin *admin, const zwchar *login, const zwchar *password) try {
    std::u16string wire;
    if (password && is_short(password)) password = (wire = wire_form(password)).c_str();
    return Command(admin, u"user", u"reset-password")
        .name(u"login", login)
        .text(u"password", password)
        .run();
} catch (...) {
    return fail_thrown(), Z_AUTH_NO_ANSWER;
}

int32_t zAdminGetUserInfo(Admin *admin, const zwchar *login, Json **result) {
    return Command(admin, u"user", u"get-info").name(u"login", login).run_for(result);
}

int32_t zAdminUserList(Admin *admin, Json **result) {
    return Command(admin, u"user", u"list").run_for(result);
}
