// No commit holds a control character; a name is cleaned of them.
#include "author.hpp"

#include "output.hpp"

#include <pwd.h>
#include <unistd.h>

namespace host {

namespace {

std::string default_author() {
    for (const char *name : {"ZEV_AUTHOR", "LOGNAME", "USER"})
        if (const char *value = getenv(name); value && *value) return value;
    if (const passwd *user = getpwuid(geteuid())) return user->pw_name;
    throw Failed(kInvalid, "who is it? Give --author NAME or set ZEV_AUTHOR");
}

} // namespace

std::string author_of(const std::string &given) {
    return clean(given.empty() ? default_author() : given);
}

} // namespace host
