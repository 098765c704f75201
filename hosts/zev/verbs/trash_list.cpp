// trash list: what was taken, by its time.

#include "trash_search.hpp"

namespace host {

namespace {

struct Options {
    std::string pattern;
};

void declare(Command &verb, Options &options) {
    verb.description("Show what was taken, when, and its id");
    verb.footer("A pattern is a part of the path, or has * and ?.\n"
                "Examples:\n  zev trash list\n  zev trash list 'plans/*.dwx'");
    verb.add_option("pattern", options.pattern, "Only paths like this");
}

int run(Host &host, const Options &options) {
    if (!print_found(host, options.pattern, false))
        host.out.line(options.pattern.empty() ? "the trash is empty"
                                              : "nothing in the trash matches");
    return kDone;
}

} // namespace

extern const Verb kTrashListVerb{"trash list", Group::rescue, Nature::paged,
                                 bind<Options, declare, run>};

} // namespace host
