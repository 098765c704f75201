// Command: a verb while it is declared: its help, its options, and where their values go. Only
// command.cpp knows the parser, whose templates each verb would compile anew.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace host {

// Stands before each word behind a "--", which is no option whatever it begins with: the parser
// gives up at that mark where a command has all that it needs.
inline constexpr char kBehindMark = '\1';

// An option or an argument of a command, which owns it.
class Argument {
  public:
    explicit Argument(CLI::Option *option) : option_(option) {}
    const Argument *operator->() const { return this; }

    const Argument &type_name(const std::string &name) const; // of its value, in the help
    const Argument &required(bool is = true) const;
    const Argument &excludes(const Argument &other) const;
    const Argument &needs(const Argument &other) const;
    const Argument &one_each() const; // of its values behind each naming of it
    const Argument &nonnegative() const;
    const Argument &
    unsigned_only(const std::string &fault) const; // an unsigned one takes "-1", too
    const Argument &hidden() const;
    bool is_given() const;

  private:
    CLI::Option *option_;
};

class Command {
  public:
    explicit Command(CLI::App &app) : app_(app) {}

    void description(const std::string &text);
    void footer(const std::string &text); // what stands below the options in the help
    void alias(const std::string &name);
    void hidden();

    // A name without dashes is an argument. What `to` is stays where it is for as long as the
    // command.
    Argument add_option(const std::string &names, std::string &to, const std::string &about);
    Argument add_option(const std::string &names, std::optional<std::string> &to,
                        const std::string &about);
    Argument add_option(const std::string &names, std::vector<std::string> &to,
                        const std::string &about);
    Argument add_option(const std::string &names, int32_t &to, const std::string &about);
    Argument add_option(const std::string &names, uint64_t &to, const std::string &about);
    Argument add_flag(const std::string &names, bool &to, const std::string &about);

    // One name for each time that an option was named, and for each word of an argument, in the
    // order in which they were given; of an option the first of its names.
    std::vector<std::string> order() const;

    // Commands below it, of which one has to be given.
    void require_command();
    Command add_command(const std::string &name, const std::string &about,
                        const std::string &heading);
    void callback(std::function<void()> given);

    const CLI::App &program() const; // that it belongs to

  private:
    CLI::App &app_;
};

} // namespace host
