// Kinds: what became of a file, in words for programs and colours for people.
#pragma once

#include "output.hpp"

namespace host {

const char *kind_name(int32_t kind);
Colour kind_colour(int32_t kind);

} // namespace host
