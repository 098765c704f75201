// logout: a remembered login is forgotten.

#include "server.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    std::string url;
};

void declare(Command &verb, Options &options) {
    verb.description("Forget the login of a server");
    verb.footer("Examples:\n  zev logout\n  zev logout http://plant:3001");
    verb.add_option("url", options.url, "The server; else that of this working copy, or the last")
        ->type_name("URL");
}

int run(Host &host, const Options &options) {
    const std::string server = find_server(options.url);
    const bool known = forget(server);
    host.out.line(say(known ? "logged out of %s" : "there was no login at %s", server));
    host.out.record(Record("logout").set(u"server", server).set(u"known", known));
    return kDone;
}

} // namespace

extern const Verb kLogoutVerb{"logout", Group::server, Nature::plain, bind<Options, declare, run>};

} // namespace host
