// generate: manual pages and completion for the build, which installs what comes out. In no list.

#include "manual.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    std::string kind, verb;
    const CLI::App *program = nullptr;
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Write a manual page or a shell's completion");
    verb.group("");
    verb.add_option("kind", options.kind, "man, bash, zsh or fish")->required();
    verb.add_option("verb", options.verb, "The verb of a manual page; else the program's");
    options.program = verb.get_parent();
}

int run(Host &, const Options &options) {
    const std::string text = describe(*options.program, options.kind, options.verb);
    fputs(text.c_str(), stdout);
    return text.empty() ? kUsage : kDone;
}

} // namespace

extern const Verb kGenerateVerb{"generate", Group::upkeep, Nature::plain,
                                bind<Options, declare, run>};

} // namespace host
