// Server: which one is meant, and who the user is there. Logins are remembered by the library, one
// a server; passwords only in their wire form.
#pragma once

#include "host.hpp"

#include <optional>
#include <string>

namespace host {

// Of any address on a server: "http://plant:3001", without what names a project. Throws for what
// is none. Without a schema it is http, and then port 3001 unless one is told.
std::string server_of(const std::string &url);
// The machine is this one, or nobody can read what travels.
bool is_private(const std::string &server);

struct Account {
    std::string user;
    std::u16string code; // the wire form of the password
};

// The server meant by an address, else by ZEV_SERVER, the working copy around, or the last login.
std::string find_server(const std::string &given);
// Remembered, else by ZEV_USER and a password from the environment.
std::optional<Account> find_account(const std::string &server);
void remember(const std::string &server, const std::string &user, const std::string &password);
// False where none was remembered.
bool forget(const std::string &server);
// What requests of the library go out with from here on; true if there is an account.
bool use_account(const std::string &server);

// ---- Passwords: never from the arguments, which others can read
// From stdin's first line; else the file that ZEV_PASSWORD_FILE names, or what the command in
// ZEV_PASSWORD_COMMAND prints; else asked for without an echo.
std::string read_password(const std::string &whose, bool from_stdin);
// One that is to be: from stdin, else asked for twice.
std::string read_new_password(const std::string &whose, bool from_stdin);

// ---- Statuses
// Throws what a status other than 100 means, `what` being what it was about.
void require_status(int32_t status, const std::string &what);
// The same of what the library raised when a call to the server failed.
[[noreturn]] void fail_answered(const std::string &what);

} // namespace host
