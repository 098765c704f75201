// user: who may log in.

#include "admin/admin.hpp"

namespace host {

namespace {

struct User {
    explicit User(const Json *fields)
        : login(member(fields, u"login")), name(member(fields, u"name")),
          mail(member(fields, u"mail")), power(flag(fields, u"power")),
          lock(flag(fields, u"lock")) {}
    std::string login, name, mail;
    bool power, lock;
};

User info_of(const AdminCall &call, const std::string &login) {
    Json *tree = nullptr;
    const int32_t status = zAdminGetUserInfo(call.admin(), wide(login).c_str(), &tree);
    const OwnedJson result(tree);
    require_status(status, login);
    const Json *fields = tree && zJsonIsObject(tree) ? zJsonObjectAt(tree, u"user") : nullptr;
    if (!fields || !zJsonIsObject(fields))
        throw Failed(kServer, say("%s: the answer has no user", login));
    return User(fields);
}

std::string marks(const User &user) {
    std::string text;
    if (user.power) text += "  " + say("administrator");
    if (user.lock) text += "  " + say("locked");
    return text;
}

void show(const AdminCall &call, const User &user) {
    Output &out = call.host.out;
    const std::string mail = user.mail.empty() ? "" : "  <" + user.mail + ">";
    out.line(padded(user.login, 16) + user.name + mail + out.paint(Colour::dim, marks(user)));
    out.record(Record("user")
                   .set(u"login", user.login)
                   .set(u"name", user.name)
                   .set(u"mail", user.mail)
                   .set(u"power", user.power)
                   .set(u"lock", user.lock));
}

const zwchar *or_null(const AdminCall &call, const char *option, std::u16string &text) {
    text = call.wide_text(option);
    return call.has(option) ? text.c_str() : nullptr;
}

// With --if-missing one who is there needs no password.
bool is_there(const AdminCall &call, const std::string &login) {
    if (!call.has("--if-missing")) return false;
    Json *tree = nullptr;
    const int32_t status = zAdminGetUserInfo(call.admin(), wide(login).c_str(), &tree);
    const OwnedJson result(tree);
    if (status != Z_AUTH_NOT_FOUND) require_status(status, login);
    return status == Z_AUTH_DONE;
}

void create(AdminCall &call) {
    const std::string login = call.text("LOGIN");
    if (is_there(call, login)) return call.tell("user create", login, "", false);
    const std::string password = read_new_password(login, call.has("--password-stdin"));
    std::u16string name, mail;
    const int32_t status = zAdminCreateUser(
        call.admin(), wide(login).c_str(), or_null(call, "--name", name), wide(password).c_str(),
        or_null(call, "--mail", mail), call.has("--power"), call.has("--lock"));
    call.tell("user create", login, say("made %s", login), call.done(status, login));
}

bool chosen(const AdminCall &call, const char *on, const char *off, bool before) {
    if (call.has(on) && call.has(off))
        throw Failed(kInvalid, say("%s and %s can't be meant together", on, off));
    return call.has(on) || (before && !call.has(off));
}

// The server takes power and lock anew each time: what isn't told stays as it is.
void modify(AdminCall &call) {
    const std::string login = call.text("LOGIN");
    const User before = info_of(call, login);
    std::u16string renamed, name, mail;
    const int32_t status =
        zAdminModifyUser(call.admin(), wide(login).c_str(), or_null(call, "--login", renamed),
                         or_null(call, "--name", name), or_null(call, "--mail", mail),
                         chosen(call, "--power", "--no-power", before.power),
                         chosen(call, "--lock", "--unlock", before.lock));
    require_status(status, login);
    call.tell("user modify", login, say("changed %s", login));
}

void remove(AdminCall &call) {
    const std::string login = call.text("LOGIN");
    const bool gone = call.done(zAdminDeleteUser(call.admin(), wide(login).c_str()), login);
    call.tell("user delete", login, say("deleted %s", login), gone);
}

void list(AdminCall &call) {
    Json *tree = nullptr;
    const int32_t status = zAdminUserList(call.admin(), &tree);
    const OwnedJson result(tree);
    require_status(status, say("the users"));
    each(tree, [&](const Json *element) {
        const Json *fields = zJsonObjectAt(element, u"user");
        if (fields && zJsonIsObject(fields)) show(call, User(fields));
    });
}

void info(AdminCall &call) { show(call, info_of(call, call.text("LOGIN"))); }

void lock(AdminCall &call) {
    const std::string login = call.text("LOGIN");
    const User before = info_of(call, login);
    const bool wanted = !call.has("--off");
    if (before.lock != wanted)
        require_status(zAdminModifyUser(call.admin(), wide(login).c_str(), nullptr, nullptr,
                                        nullptr, before.power, wanted),
                       login);
    call.tell("user lock", login, say(wanted ? "%s can't log in" : "%s can log in again", login),
              before.lock != wanted);
}

// One's own is remembered in place of the old one.
void password(AdminCall &call) {
    const std::string login = call.text("LOGIN");
    const std::string fresh = read_new_password(login, call.has("--password-stdin"));
    require_status(zAdminResetPassword(call.admin(), wide(login).c_str(), wide(fresh).c_str()),
                   login);
    if (zStrcasesameW(wide(login).c_str(), wide(call.user()).c_str()))
        remember(call.server(), call.user(), fresh);
    call.tell("user password", login, say("%s has a new password", login));
}

constexpr AdminVerb kVerbs[] = {
    {"create", "Make a user", "LOGIN",
     "--name TEXT --mail ADDRESS --power --lock --password-stdin --if-missing", create},
    {"modify", "Change a user; what isn't told stays", "LOGIN",
     "--login NAME --name TEXT --mail ADDRESS --power --no-power --lock --unlock", modify},
    {"delete", "Delete a user, with all he has in groups and roles", "LOGIN", "--if-exists",
     remove},
    {"list", "Show all users", "", "", list},
    {"info", "Show one user", "LOGIN", "", info},
    {"lock", "Keep a user from logging in, or let him again", "LOGIN", "--off", lock},
    {"password", "Give a user another password", "LOGIN", "--password-stdin", password},
};

} // namespace

extern const AdminNoun kUserNoun{
    "user", "Who may log in",
    "Examples:\n  zev admin user create anna --name \"Anna Lind\" --password-stdin < secret\n"
    "  zev admin user modify anna --mail anna@plant.example --power\n"
    "  zev admin user lock anna\n  zev admin user lock anna --off",
    kVerbs};

} // namespace host
