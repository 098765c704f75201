// Foreign rows: of drawings that were copied here from another project without what they name.
#pragma once

#include "verb.hpp"

namespace host {

// Of what `spec` would add: gives each drawing whose table isn't here the rows of the project that
// has them, if that lies beside this one, and says so, or warns; and lets one that was renamed
// outside keep its table. Gives all files of it that nobody tracks.
Paths prepare_drawings(Host &host, const WorkingCopy &copy, PathSpec *spec);

// The rows of one table into a new one, which appears when all are in it.
void copy_table(const std::filesystem::path &from, const std::filesystem::path &to);

} // namespace host
