// Cookies are named by the server's address and a word of this program; one more entry holds the
// address of the server that was logged in to last.
#include "server.hpp"

#include "copy.hpp"
#include "remote_copy.hpp"
#include "terminal.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>

namespace host {

namespace {

constexpr const zwchar *kProgram = u"zev";
constexpr const zwchar *kLast = u"last server";
constexpr size_t kPasswordMax = 511;

using OwnedUri = Owned<Uri, zUriFree>;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c | 32 : c);
    });
    return text;
}

std::string variable(const char *name) {
    const char *value = getenv(name);
    return value ? value : "";
}

// ---- Cookies

bool read_cookie(const std::string &first, const zwchar *second, std::u16string *user,
                 std::u16string *code) {
    zwchar texts[2][Z_LOGIN_MAX] = {};
    if (!zCookieRead(wide(first).c_str(), second, texts[0], texts[1])) return false;
    *user = texts[0], *code = texts[1];
    return true;
}

std::string last_server() {
    std::u16string server, unused;
    return read_cookie("zev", kLast, &server, &unused) ? narrow(server.c_str()) : "";
}

// The address of the project that a working copy around here comes from; empty where that follows
// no server, as any repository of git's may lie around.
std::string origin() try { return origin_of(WorkingCopy()); } catch (const std::exception &) {
    return {};
}

// ---- Passwords

std::string first_line(std::istream &in) {
    std::string line;
    std::getline(in, line);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

std::string printed_by(const std::string &command) {
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) throw Failed(kOther, "ZEV_PASSWORD_COMMAND can't be run");
    std::string text;
    for (int byte;
         (byte = fgetc(pipe.get())) != EOF && byte != '\n' && text.size() <= kPasswordMax;)
        text += static_cast<char>(byte);
    if (text.ends_with('\r')) text.pop_back();
    return text;
}

// Nothing where the environment names no source; one that gives nothing is no password.
std::optional<std::string> from_environment() {
    const std::string file = variable("ZEV_PASSWORD_FILE");
    if (!file.empty()) {
        std::ifstream in(file);
        if (!in) throw Failed(kNotFound, say("%s: the password can't be read", file));
        return first_line(in);
    }
    const std::string command = variable("ZEV_PASSWORD_COMMAND");
    if (command.empty()) return {};
    return printed_by(command);
}

std::string asked(const Terminal &terminal, const std::string &question) {
    const std::optional<std::string> line = terminal.read_secret(question);
    if (!line) throw Failed(kCanceled, "no password was given");
    return *line;
}

std::string checked(std::string password) {
    if (password.empty()) throw Failed(kInvalid, "the password is empty");
    if (wide(password).size() > kPasswordMax) throw Failed(kInvalid, "the password is too long");
    return password;
}

void require(const Terminal &terminal) {
    if (!terminal)
        throw Failed(kInvalid, "there is no terminal to ask for a password; use --password-stdin");
}

} // namespace

// ---- Addresses

std::string server_of(const std::string &given) {
    const size_t colon = given.find("://");
    const bool bare = colon == given.npos;
    const OwnedUri uri(zUriNew(wide(bare ? "http://" + given : given).c_str()));
    const std::string schema = uri ? lower(narrow(zUriSchema(uri.get()))) : "";
    const std::string host = uri ? lower(narrow(zUriHost(uri.get()))) : "";
    if (host.empty() || (schema != "http" && schema != "https"))
        throw Failed(kInvalid, say("%s: is no server's address, such as http://plant:3001", given));
    const uint32_t standard = zUriDefaultPort(wide(schema).c_str()), service = 3001;
    uint32_t port = zUriPort(uri.get());
    if (bare && port == standard) port = service;
    std::string path = narrow(zUriPath(uri.get()));
    path.resize(std::min(path.find("/repos"), path.size()));
    if (path.ends_with('/')) path.pop_back();
    const bool is_ipv6 = host.find(':') != host.npos;
    return schema + "://" + (is_ipv6 ? "[" + host + "]" : host) +
           (port == standard ? "" : ":" + std::to_string(port)) + path;
}

bool is_private(const std::string &server) {
    const OwnedUri uri(zUriNew(wide(server).c_str()));
    const std::string host = uri ? narrow(zUriHost(uri.get())) : "";
    const bool is_ipv4 = host.find_first_not_of("0123456789.") == host.npos;
    return server.starts_with("https:") || host == "localhost" || host == "::1" ||
           (is_ipv4 && host.starts_with("127."));
}

std::string find_server(const std::string &given) {
    for (const std::string &url : {given, variable("ZEV_SERVER"), origin(), last_server()})
        if (!url.empty()) return server_of(url);
    throw Failed(kInvalid, "which server? Log in first: \"zev login URL\"");
}

// ---- Accounts

std::optional<Account> find_account(const std::string &server) {
    std::u16string user, code;
    if (read_cookie(server, kProgram, &user, &code)) return Account{narrow(user.c_str()), code};
    const std::string name = variable("ZEV_USER");
    const std::optional<std::string> password = name.empty() ? std::nullopt : from_environment();
    if (!password) return {};
    return Account{name, wire_form(checked(*password))};
}

void remember(const std::string &server, const std::string &user, const std::string &password) {
    check(
        zCookieWriteRaw(wide(server).c_str(), kProgram, wide(user).c_str(), wide(password).c_str()),
        say("the login"));
    check(zCookieWrite(kProgram, kLast, wide(server).c_str(), u"-"), say("the login"));
}

bool forget(const std::string &server) {
    std::u16string user, code;
    const bool known = read_cookie(server, kProgram, &user, &code);
    check(zCookieClear(wide(server).c_str(), kProgram), say("the login"));
    if (last_server() == server) check(zCookieClear(kProgram, kLast), say("the login"));
    return known;
}

bool use_account(const std::string &server) {
    const std::optional<Account> account = find_account(server);
    if (!account) return zLoginInfoClear(), false;
    return check(zLoginInfoSet(wide(account->user).c_str(), nullptr, account->code.c_str()));
}

// ---- Passwords

std::string read_password(const std::string &whose, bool from_stdin) {
    if (from_stdin) return checked(first_line(std::cin));
    if (std::optional<std::string> given = from_environment()) return checked(std::move(*given));
    const Terminal terminal;
    require(terminal);
    return checked(asked(terminal, say("Password of %s:", whose) + " "));
}

std::string read_new_password(const std::string &whose, bool from_stdin) {
    if (from_stdin) return checked(first_line(std::cin));
    const Terminal terminal;
    require(terminal);
    std::string password = checked(asked(terminal, say("New password of %s:", whose) + " "));
    if (asked(terminal, say("Once more:") + " ") != password)
        throw Failed(kInvalid, "the two passwords differ");
    return password;
}

// ---- Statuses

void fail_answered(const std::string &what) {
    const Failed failed = raised(what);
    const bool own = failed.error_class == kNetwork || failed.error_class == kCanceled ||
                     failed.error_class == kInvalid;
    if (own) throw failed;
    throw Failed(kNetwork, 503, failed.what()); // the transport's own
}

void require_status(int32_t status, const std::string &what) {
    if (status == Z_AUTH_DONE) return;
    if (status == Z_AUTH_NO_ANSWER || !status) fail_answered(what);
    std::string key = "auth." + std::to_string(status);
    Json *catalogue = zI18nCurrentLang();
    if (!zI18nNodeExists(catalogue, wide(key).c_str())) key = "auth.sUnknown";
    const std::string text = narrow(zI18nTextLookup(catalogue, wide(key).c_str()));
    int error_class = kServer;
    if (status == Z_AUTH_BAD_ARGUMENT || status == Z_AUTH_BAD_NAME || status == Z_AUTH_OWN_LOGIN)
        error_class = kInvalid;
    else if (status == Z_AUTH_NOT_FOUND)
        error_class = kNotFound;
    else if (status == Z_AUTH_EXISTS)
        error_class = kExists;
    throw Failed(error_class, status, (what.empty() ? "" : what + ": ") + text);
}

} // namespace host
