// Usage: what is wrong with the arguments, said so that the user finds the way on.
#pragma once

#include <cstddef>
#include <string>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace host {

// In place of the parser's own words, with the help that tells more.
std::string usage_problem(const CLI::App &app, const CLI::ParseError &error);

// How many letters are to be put in, left out or replaced to get from one word to the other.
size_t typos_between(const std::string &from, const std::string &to);

} // namespace host
