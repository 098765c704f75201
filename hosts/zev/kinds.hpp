// Kinds: what became of a file, in words for programs and colours for people.
#pragma once

#include "output.hpp"

namespace host {

const char *kind_name(int32_t kind);
std::string kind_word(int32_t kind);   // in the user's language
std::string kind_column(int32_t kind); // the same, as wide as all of them need it
Colour kind_colour(int32_t kind);

} // namespace host
