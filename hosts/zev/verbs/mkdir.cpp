// mkdir: directories that the next commit will hold.

#include "keep_files.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    Paths paths;
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Make directories that the next commit will hold");
    verb.footer("Example:\n  zev mkdir plans/ground-floor");
    verb.add_option("directories", options.paths, "New directories")->required();
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    std::vector<std::string> made;
    for (const std::string &path : options.paths) made.push_back(copy.relative(path));
    OwnedIndex index = copy.lock_index();
    for (const std::string &path : made)
        if (copy.is_on_disk(path)) throw Failed(kExists, path + ": is there already");
    for (const std::string &path : made) {
        check(zDirMake(copy.absolute(path).u16string().c_str(), true), path);
    }
    keep_directories(copy, index.get(), made);
    check(zIndexWrite(index.get()));
    for (const std::string &path : made) {
        host.out.line(host.out.paint(Colour::green, "Added     ") + " " + path + "/");
        host.out.record(Record("action").set(u"action", "added").set(u"path", path + "/"));
    }
    return kDone;
}

} // namespace

extern const Verb kMkdirVerb{"mkdir", Group::work, Nature::changes, bind<Options, declare, run>};

} // namespace host
