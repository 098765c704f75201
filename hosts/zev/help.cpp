// Descriptions are declared in English; a hidden verb or option has an empty group and keeps it.
#include "help.hpp"

#include "say.hpp"

#include <string>
#include <string_view>

namespace host {

namespace {

// The parser's own words.
constexpr const char *kLabels[] = {"Usage", "OPTIONS", "REQUIRED", "Needs"};

// Prose, and examples behind it, which are commands and stay.
std::string translated_footer(const std::string &footer) {
    constexpr std::string_view kExamples[] = {"Examples:\n", "Example:\n"};
    for (const std::string_view mark : kExamples) {
        const size_t at = footer.find(mark);
        if (at == footer.npos || (at && footer[at - 1] != '\n')) continue;
        const std::string prose = at ? said(footer.substr(0, at - 1)) + "\n" : "";
        return prose + said(std::string(mark.substr(0, mark.size() - 1))) +
               footer.substr(at + mark.size() - 1);
    }
    return said(footer);
}

void translate(CLI::App &app) {
    app.description(said(app.get_description()));
    app.footer(translated_footer(app.get_footer()));
    if (!app.get_group().empty()) app.group(said(app.get_group()));
    for (CLI::Option *option : app.get_options([](CLI::Option *) { return true; })) {
        option->description(said(option->get_description()));
        if (!option->get_group().empty()) option->group(said(option->get_group()));
    }
    for (CLI::App *verb : app.get_subcommands([](CLI::App *) { return true; })) translate(*verb);
}

} // namespace

void translate_help(CLI::App &app) {
    const auto formatter = app.get_formatter();
    for (const char *label : kLabels) formatter->label(label, say(label));
    formatter->label("Positionals", say("Arguments"));
    formatter->label("Excludes", say("not with"));
    formatter->label("Needs", say("only with"));
    translate(app);
}

} // namespace host
