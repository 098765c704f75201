// generate: manual pages and completion for the build, which installs what comes out, and the words
// that completion asks for. In no list.

#include "manual.hpp"
#include "verb.hpp"
#include "words.hpp"

namespace host {

namespace {

struct Options {
    std::string kind, verb;
    std::vector<std::string> line;
    const CLI::App *program = nullptr;
};

void declare(Command &verb, Options &options) {
    verb.description("Write a manual page or a shell's completion");
    verb.hidden();
    verb.add_option("kind", options.kind, "man, bash, zsh, fish or words")->required();
    verb.add_option("verb", options.verb,
                    "Of a manual page, else the program's; the kind of words");
    verb.add_option("line", options.line, "What was typed so far, for words");
    options.program = &verb.program();
}

int run(Host &, const Options &options) {
    if (options.kind == "words") {
        for (const std::string &word : words_of(options.verb, options.line))
            printf("%s\n", word.c_str());
        return kDone;
    }
    const std::string text = describe(*options.program, options.kind, options.verb);
    fputs(text.c_str(), stdout);
    return text.empty() ? kUsage : kDone;
}

} // namespace

extern const Verb kGenerateVerb{"generate", Group::upkeep, Nature::plain,
                                bind<Options, declare, run>};

} // namespace host
