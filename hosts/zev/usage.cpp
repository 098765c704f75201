// The parser knows what is wrong, but not what the user meant; that is guessed from the spelling.
#include "usage.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <vector>

namespace host {

namespace {

// The verb that was meant, as far as one can tell.
std::string meant(const CLI::App &app, const std::string &word) {
    std::string best;
    size_t least = word.size() / 3 + 1; // one typo in three letters at most
    for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; })) {
        const std::string &name = verb->get_name();
        if (verb->get_group().empty()) continue; // not for users
        const size_t typos = name.starts_with(word) ? 0 : typos_between(word, name);
        if (typos < least) least = typos, best = name;
    }
    return best;
}

// The first word that nothing took.
std::string stray_word(const CLI::App &app) {
    for (const std::string &word : app.remaining(true))
        if (!word.starts_with('-')) return word;
    return {};
}

} // namespace

size_t typos_between(const std::string &from, const std::string &to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t corner = row[0]++;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = corner + (from[i] != to[j]);
            corner = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, corner + 1});
        }
    }
    return row.back();
}

std::string usage_problem(const CLI::App &app, const CLI::ParseError &error) {
    const CLI::App *at = &app;
    std::string name = at->get_name();
    for (auto given = at->get_subcommands(); !given.empty(); given = at->get_subcommands()) {
        at = given.front();
        name += " " + at->get_name();
    }
    constexpr std::string_view kRequired = " is required";
    std::string text = error.what();
    if (text.ends_with(kRequired))
        text = "\"" + name + "\" needs " + text.substr(0, text.size() - kRequired.size());
    const std::string word = stray_word(app);
    const bool chooses = at->get_require_subcommand_max() > 0 && !word.empty();
    if (at->get_require_subcommand_min() > 0 || chooses) {
        const std::string verb = meant(*at, word);
        text = word.empty() ? "what is to be done?" : "\"" + word + "\" is no verb";
        if (!word.empty() && !verb.empty()) text += "; is it \"" + name + " " + verb + "\"?";
    }
    return text + " (\"" + name + " --help\" tells more)";
}

} // namespace host
