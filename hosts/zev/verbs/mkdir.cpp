// mkdir: directories that the next commit will hold.

#include "front.hpp"
#include "index_change.hpp"
#include "keep_files.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    Paths paths;
};

void declare(Command &verb, Options &options) {
    verb.description("Make directories that the next commit will hold");
    verb.footer("Example:\n  zev mkdir plans/ground-floor");
    verb.add_option("directories", options.paths, "New directories")->required();
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    std::vector<std::string> made;
    for (const std::string &path : options.paths) made.push_back(copy.relative(path));
    for (const std::string &path : made)
        if (copy.is_on_disk(path))
            throw Failed(kExists, say("%s: is there already", typed_path(path)));
    for (const std::string &path : made) {
        check(zDirMake(copy.absolute(path).u16string().c_str(), true), path);
    }
    const OwnedIndex index =
        change_index(copy, [&](Index *changed, bool) { keep_directories(copy, changed, made); });
    int code = kDone;
    for (const std::string &path : made) {
        if (!is_tracked(index.get(), path)) {
            code = kFailed;
            host.out.warn(say("%s: was made, but is ignored or another repository's; no commit "
                              "will hold it",
                              typed_path(path)));
            continue;
        }
        host.out.line(host.out.paint(Colour::green, action_column(say("Added"))) +
                      typed_path(path) + "/");
        host.out.record(Record("action").set(u"action", "added").set(u"path", path + "/"));
    }
    return code;
}

} // namespace

extern const Verb kMkdirVerb{"mkdir", Group::work, Nature::changes, bind<Options, declare, run>};

} // namespace host
