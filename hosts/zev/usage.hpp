// Usage: what is wrong with the arguments, said so that the user finds the way on.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace host {

// In place of the parser's own words, with the help that tells more.
std::string usage_problem(const CLI::App &app, const CLI::ParseError &error);

} // namespace host
