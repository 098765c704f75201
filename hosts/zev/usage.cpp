// The parser knows what is wrong, but not what the user meant; that is guessed from the spelling.
#include "usage.hpp"

#include "command.hpp"
#include "say.hpp"

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

// What the parser may say, as far as a user can bring it to.
constexpr const char *kParserTexts[] = {
    "The following argument was not expected: %s",
    "The following arguments were not expected: %s",
    "The value %s is not an allowed value for %s",
    "Could not convert: %s = %s",
    "%s: %s required %s missing",
    "%s: At least %s required but received %s",
    "%s: At Most %s required but received %s",
    "%s: Value %s not in range %s to %s",
    "%s: Failed parsing %s as a %s",
    "%s: %s not in {%s}",
    "%s: too many inputs for a flag",
    "%s: Should be true/false or a number",
    "%s was given a disallowed flag override",
    "%s excludes %s",
    "%s requires %s",
};

// The parser's words in the user's language; behind a name may stand a text of our own.
std::string in_users_words(const std::string &told) {
    const std::string text = retold(told, kParserTexts);
    const size_t colon = told.find(": ");
    if (text != told || colon == told.npos) return text;
    return told.substr(0, colon + 2) + said(told.substr(colon + 2));
}

// The first word that nothing took.
std::string stray_word(const CLI::App &app) {
    for (std::string word : app.remaining(true)) {
        if (word.starts_with('-')) continue;
        std::erase(word, kBehindMark);
        return word;
    }
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
    std::erase(text, kBehindMark);
    if (text.ends_with(kRequired))
        text = say("\"%s\" needs %s", name, text.substr(0, text.size() - kRequired.size()));
    else
        text = in_users_words(text);
    const std::string word = stray_word(app);
    const bool chooses = at->get_require_subcommand_max() > 0 && !word.empty();
    if (at->get_require_subcommand_min() > 0 || chooses) {
        const std::string verb = meant(*at, word);
        if (word.empty())
            text = say("what is to be done?");
        else if (verb.empty())
            text = say("\"%s\" is no verb", word);
        else
            text = say("\"%s\" is no verb; is it \"%s\"?", word, name + " " + verb);
    }
    return say("%s (\"%s --help\" tells more)", text, name);
}

} // namespace host
