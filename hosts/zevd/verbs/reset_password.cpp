// reset-password: for the administrator who can't log in any more. No server may run meanwhile.
#include "service.hpp"
#include "verb.hpp"

#include <cstdio>

namespace host {

namespace {

struct Options {
    std::string user;
    bool from_stdin = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Set a user's password while no server runs");
    verb.footer("One who was locked can log in again.\nExamples:\n  zevd reset-password admin");
    verb.add_option("user", options.user, "The user's login")->required();
    verb.add_flag("--password-stdin", options.from_stdin, "Read the password from stdin");
}

int run(const std::string &file, const Options &options) {
    const Config config(file);
    config.require_sound();
    use_data(config);
    const ServiceLock lock(config.repos(), false);
    const std::string password = read_password(options.user, options.from_stdin);
    const Module module = open_module();
    set_password(*module, options.user, password);
    printf("%s has a new password%s\n", options.user.c_str(),
           unlock(*module, options.user) ? ", and is not locked any more" : "");
    return kDone;
}

} // namespace

extern const Verb kResetPasswordVerb{"reset-password", bind<Options, declare, run>};

} // namespace host
