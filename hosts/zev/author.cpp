// No commit holds a control character; a name is cleaned of them.
#include "author.hpp"

#include "output.hpp"

#include <pwd.h>
#include <unistd.h>

namespace host {

namespace {

std::string default_author(const std::string &user) {
    const char *own = getenv("ZEV_AUTHOR");
    if (!user.empty() && !(own && *own)) return user;
    for (const char *name : {"ZEV_AUTHOR", "LOGNAME", "USER"})
        if (const char *value = getenv(name); value && *value) return value;
    if (const passwd *user = getpwuid(geteuid())) return user->pw_name;
    throw Failed(kInvalid, "who is it? Give --author NAME or set ZEV_AUTHOR");
}

} // namespace

std::string author_of(const std::string &given, const std::string &user) {
    return clean(given.empty() ? default_author(user) : given);
}

} // namespace host
