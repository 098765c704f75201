// Help in the user's language.
#pragma once

#include <CLI/CLI.hpp>

namespace host {

// What help shows of a program, its verbs and its options. Manual pages and completion are made
// from the same declarations, in English: this comes only where help is about to be shown.
void translate_help(CLI::App &app);

} // namespace host
