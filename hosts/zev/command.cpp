// The parser reads each option of the program behind a verb, too.
#include "command.hpp"

#include <CLI/CLI.hpp>

namespace host {

// ---- Arguments

const Argument &Argument::type_name(const std::string &name) const {
    return option_->type_name(name), *this;
}
const Argument &Argument::required(bool is) const { return option_->required(is), *this; }
const Argument &Argument::excludes(const Argument &other) const {
    return option_->excludes(other.option_), *this;
}
const Argument &Argument::needs(const Argument &other) const {
    return option_->needs(other.option_), *this;
}
const Argument &Argument::one_each() const { return option_->allow_extra_args(false), *this; }
const Argument &Argument::unsigned_only(const std::string &fault) const {
    option_->check([fault](const std::string &text) { return text.starts_with('-') ? fault : ""; });
    return *this;
}
const Argument &Argument::nonnegative() const {
    return option_->check(CLI::NonNegativeNumber), *this;
}
const Argument &Argument::hidden() const { return option_->group(""), *this; }
bool Argument::is_given() const { return option_->count() > 0; }

// ---- Commands

namespace {

std::string uncovered(std::string word) { return word.substr(word.starts_with(kBehindMark)); }

template <class T>
Argument taken(CLI::App &app, const std::string &names, T &to, const std::string &about) {
    return Argument(app.add_option(names, to, about)->transform(uncovered));
}

} // namespace

void Command::description(const std::string &text) { app_.description(text); }
void Command::footer(const std::string &text) { app_.footer(text); }
void Command::alias(const std::string &name) { app_.alias(name); }
void Command::hidden() { app_.group(""); }

Argument Command::add_option(const std::string &names, std::string &to, const std::string &about) {
    return taken(app_, names, to, about);
}
Argument Command::add_option(const std::string &names, std::optional<std::string> &to,
                             const std::string &about) {
    return taken(app_, names, to, about);
}
Argument Command::add_option(const std::string &names, std::vector<std::string> &to,
                             const std::string &about) {
    return taken(app_, names, to, about);
}
Argument Command::add_option(const std::string &names, int32_t &to, const std::string &about) {
    return taken(app_, names, to, about);
}
Argument Command::add_option(const std::string &names, uint64_t &to, const std::string &about) {
    return taken(app_, names, to, about);
}
Argument Command::add_flag(const std::string &names, bool &to, const std::string &about) {
    return Argument(app_.add_flag(names, to, about));
}

std::vector<std::string> Command::order() const {
    std::vector<std::string> names;
    for (const CLI::Option *option : app_.parse_order()) names.push_back(option->get_name());
    return names;
}

void Command::require_command() { app_.require_subcommand(1); }

Command Command::add_command(const std::string &name, const std::string &about,
                             const std::string &heading) {
    CLI::App *below = app_.add_subcommand(name, about);
    below->group(heading);
    below->footer(""); // this one's would be taken over
    below->fallthrough();
    return Command(*below);
}

void Command::callback(std::function<void()> given) { app_.callback(std::move(given)); }

const CLI::App &Command::program() const {
    const CLI::App *at = &app_;
    while (at->get_parent()) at = at->get_parent();
    return *at;
}

} // namespace host
