// Manual: manual pages and shell completion, written from the tree of options that the parser
// itself works with, so that they can't say anything else.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace host {

// `kind` is man (scdoc source, of one verb or for an empty one of the program), verbs (their
// names), bash, zsh or fish. Empty for anything else.
std::string describe(const CLI::App &app, const std::string &kind, const std::string &verb);

} // namespace host
