// login: proves who the user is to a server, and remembers it.

#include "server.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    std::string url, user;
    bool from_stdin = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Log in to a server, which is remembered");
    verb.footer(
        "The password is asked for without an echo; it may come from the first line of stdin, "
        "from\n"
        "the file that ZEV_PASSWORD_FILE names, or from what the command in ZEV_PASSWORD_COMMAND\n"
        "prints. What is kept of it, for you alone, opens your account as the password does.\n"
        "Scripts need no login: ZEV_USER and one of the two stand in for it.\n"
        "Examples:\n  zev login http://plant:3001\n"
        "  zev login http://plant:3001 --user anna --password-stdin < secret");
    verb.add_option("url", options.url, "The server, or any address on it")
        ->type_name("URL")
        ->required();
    verb.add_option("--user", options.user, "Your login there; else the last one, or $USER")
        ->type_name("NAME");
    verb.add_flag("--password-stdin", options.from_stdin, "Read the password from stdin");
}

std::string login_of(const std::string &server, const std::string &given) {
    if (!given.empty()) return given;
    if (const auto account = find_account(server)) return account->user;
    for (const char *name : {"ZEV_USER", "USER", "LOGNAME"})
        if (const char *value = getenv(name); value && *value) return value;
    throw Failed(kInvalid, "who are you? --user NAME tells it");
}

// How the user is called; empty where the server has no name for him.
std::string shown_name(const std::string &server, const std::string &user) {
    const auto account = find_account(server);
    zwchar *name = nullptr;
    if (account)
        zAdminGetUserName(wide(server).c_str(), wide(user).c_str(), account->code.c_str(), &name);
    return narrow(Owned<zwchar, zStrfreeW>(name).get());
}

int run(Host &host, const Options &options) {
    const std::string server = server_of(options.url);
    const std::string user = login_of(server, options.user);
    if (!is_private(server))
        host.out.warn(say("the password crosses the network to %s unencrypted, as all else: it can "
                          "be read and changed on its way",
                          server));
    const std::string password = read_password(say("%s at %s", user, server), options.from_stdin);
    const int32_t status =
        zAdminLogin(wide(server).c_str(), wide(user).c_str(), wide(password).c_str(), false, false);
    require_status(status, say("%s at %s", user, server));
    remember(server, user, password);
    const std::string name = shown_name(server, user);
    host.out.line(say("logged in to %s as %s", server, user) +
                  (name.empty() ? "" : " (" + name + ")"));
    host.out.record(Record("login").set(u"server", server).set(u"user", user).set(u"name", name));
    return kDone;
}

} // namespace

extern const Verb kLoginVerb{"login", Group::server, Nature::plain, bind<Options, declare, run>};

} // namespace host
