// No commit holds a control character; a name is cleaned of them.
#include "author.hpp"

#include "terminal.hpp"

#include <pwd.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

using OwnedConfig = Owned<Config, zConfigFree>;

std::string setting(const Config *settings, const zwchar *key) {
    return zConfigExists(settings, key) ? trimmed(narrow(zConfigGetString(settings, key))) : "";
}

std::string environment(const char *name) {
    const char *value = getenv(name);
    return value ? trimmed(value) : "";
}

std::string known_author(const WorkingCopy &copy, const std::string &account) {
    const OwnedConfig settings(check(zConfigRepo(copy.repository())));
    std::string name = setting(settings.get(), kAuthorKey);
    if (name.empty()) name = environment("ZEV_AUTHOR");
    if (name.empty()) name = account;
    return name.empty() ? setting(settings.get(), u"user.name") : name;
}

std::string login_name() {
    for (const char *variable : {"LOGNAME", "USER"})
        if (std::string name = environment(variable); !name.empty()) return name;
    const passwd *user = getpwuid(geteuid());
    return user ? user->pw_name : "";
}

// The user's settings hold for all copies; a file that is a link stays one. Without a home it is
// this copy that knows.
OwnedConfig own_settings(const WorkingCopy &copy) {
    if (OwnedConfig settings{zConfigUser()}) return settings;
    const std::string home = environment("HOME");
    std::error_code error;
    if (!home.empty() && fs::is_directory(home, error)) {
        const fs::path file = fs::weakly_canonical(fs::path(home) / ".gitconfig", error);
        if (!error) return OwnedConfig(zConfigRead(file.u16string().c_str()));
    }
    return OwnedConfig(zConfigRepo(copy.repository()));
}

// A name that can't be kept is one all the same; the next commit asks again.
void keep(Host &host, const WorkingCopy &copy, const std::string &name) {
    const OwnedConfig settings = own_settings(copy);
    if (settings && zConfigSetString(settings.get(), kAuthorKey, wide(name).c_str()))
        host.out.line("\"zev config zev.author\" shows and changes it");
    else
        host.out.warn(say("the name could not be kept: %s", narrow(zErrorDetail())));
}

// Nothing where nobody answers. An address has no place in a name.
std::string ask_name(Host &host, const Terminal &terminal, const std::string &login) {
    const std::string offered = login == "root" ? "" : login;
    host.out.clear_progress();
    while (!broken()) {
        terminal.write(say("Who are you? Your name for what you commit") +
                       (offered.empty() ? "" : " [" + offered + "]") + ": ");
        const std::optional<std::string> line = terminal.read_line();
        if (!line) break;
        std::string name = trimmed(clean(line->substr(0, line->find('<'))));
        if (!is_text(name)) continue;
        if (name.empty()) name = offered;
        if (!name.empty()) return name;
    }
    terminal.write("\n");
    stop_on_break(host.notify);
    return {};
}

} // namespace

std::string author_of(Host &host, const WorkingCopy &copy, const std::string &given,
                      const std::string &account) {
    std::string name = given.empty() ? known_author(copy, account) : given;
    if (!name.empty()) return clean(name);
    const std::string login = clean(login_name());
    if (!host.out.json())
        if (const Terminal terminal; terminal) name = ask_name(host, terminal, login);
    if (!name.empty()) {
        keep(host, copy, name);
        return name;
    }
    if (login.empty())
        throw Failed(kInvalid, "who is it? \"zev config zev.author NAME\" tells it for good");
    host.out.warn(say("the commit is by \"%s\", as you are logged in; "
                      "\"zev config zev.author NAME\" tells your name",
                      login));
    return login;
}

} // namespace host
