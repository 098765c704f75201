// init: a new working copy.

#include "verb.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string directory = ".";
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Make a new working copy");
    verb.footer("Examples:\n  zev init project\n  zev init        in this directory");
    verb.add_option("directory", options.directory, "A new or an empty directory")
        ->type_name("DIR");
}

int run(Host &host, const Options &options) {
    fs::path full = fs::absolute(options.directory).lexically_normal();
    if (!full.has_filename()) full = full.parent_path();
    const std::string path = full.string();
    if (fs::exists(full / ".git")) throw Failed(kInvalid, path + ": is a working copy already");
    if (fs::exists(full) && !(fs::is_directory(full) && fs::is_empty(full)))
        throw Failed(kInvalid, path + ": a working copy needs a new or an empty directory");
    OwnedRepository repository(check(zRepositoryInit(wide(path).c_str(), false), path));
    host.out.line("a new working copy in " + path);
    host.out.record(Record("init").set(u"path", path));
    return kDone;
}

} // namespace

extern const Verb kInitVerb{"init", Group::work, Nature::plain, bind<Options, declare, run>};

} // namespace host
