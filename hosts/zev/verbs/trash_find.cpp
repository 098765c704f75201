// trash find: searched, inside of directories too.

#include "trash_search.hpp"

namespace host {

namespace {

struct Options {
    std::string pattern;
};

void declare(Command &verb, Options &options) {
    verb.description("Search it, inside of directories too");
    verb.footer("A pattern is a part of the path, or has * and ?.\n"
                "Examples:\n  zev trash find door\n  zev trash find '*.dwx'");
    verb.add_option("pattern", options.pattern, "Paths like this")->required();
}

int run(Host &host, const Options &options) {
    if (!print_found(host, options.pattern, true))
        throw Failed(kNotFound, say("%s: nothing in the trash matches", options.pattern));
    return kDone;
}

} // namespace

extern const Verb kTrashFindVerb{"trash find", Group::rescue, Nature::paged,
                                 bind<Options, declare, run>};

} // namespace host
