// Logging in. The login of a session is the account of all of its requests, the password in the
// wire form that was looked at.
#include "rms/admin.hpp"
#include "rms/password.hpp"

using namespace zev;

namespace {

constexpr size_t kWireForm = 40; // units

// Null for a text that is no password; may throw.
const zwchar *as_sent(const zwchar *password, bool hashed, std::u16string *wire) {
    if (!password || !is_short(password)) return nullptr;
    *wire = hashed ? password : wire_form(password);
    return hashed && wire->size() > kWireForm ? nullptr : wire->c_str();
}

int32_t prove(Session &session, const zwchar *action, const zwchar *login, const zwchar *wire,
              bool power, Here at = {}) {
    return Command(session.get(), u"user", action, at)
        .name(u"login", login)
        .text(u"password", wire)
        .flag(u"power", power)
        .run();
}

int32_t prove(const zwchar *url, const zwchar *action, const zwchar *login, const zwchar *password,
              bool hashed, bool power, Here at = {}) try {
    std::u16string wire;
    const zwchar *sent = as_sent(password, hashed, &wire);
    Session session = open_session(url);
    return prove(session, action, login, sent, power, at);
} catch (...) {
    return fail_thrown(at), Z_AUTH_NO_ANSWER;
}

bool set_account(HttpRequest *request, const zwchar *login, const zwchar *wire) {
    std::u16string lower = login;
    zStrlwrW(lower.data());
    return zHttpRequestSetAccount(request, lower.c_str(), wire);
}

} // namespace

int32_t zAdminLogin(const zwchar *url, const zwchar *login, const zwchar *password, bool hashed,
                    bool power) {
    return prove(url, u"login", login, password, hashed, power);
}

int32_t zAdminCheckUser(const zwchar *url, const zwchar *login, const zwchar *password, bool hashed,
                        bool power) {
    return prove(url, u"check", login, password, hashed, power);
}

int32_t zAdminLoginRms(const zwchar *url, const zwchar *login, const zwchar *password, bool hashed,
                       bool power, Admin **admin) try {
    if (!admin) return fail_args(), Z_AUTH_BAD_ARGUMENT;
    std::u16string wire;
    const zwchar *sent = as_sent(password, hashed, &wire);
    Session session = open_session(url);
    const int32_t status = prove(session, u"login", login, sent, power);
    if (status != Z_AUTH_DONE) return status;
    if (!set_account(session->request.get(), login, sent)) return Z_AUTH_NO_ANSWER;
    *admin = session.release();
    return status;
} catch (...) {
    return fail_thrown(), Z_AUTH_NO_ANSWER;
}

int32_t zAdminGetUserName(const zwchar *url, const zwchar *login, const zwchar *password,
                          zwchar **name) try {
    Session session = open_session(url);
    return Command(session.get(), u"user", u"dis-name")
        .name(u"login", login)
        .text(u"password", password)
        .run_for(u"name", name);
} catch (...) {
    return fail_thrown(), Z_AUTH_NO_ANSWER;
}
