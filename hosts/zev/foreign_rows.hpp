// Foreign rows: of drawings that were copied here from another project without what they name.
#pragma once

#include "verb.hpp"

namespace host {

// Gives each drawing that `spec` would add, and whose table isn't here, the rows of the project
// that has them, if that lies beside this one; says so, or warns.
void fetch_foreign_rows(Host &host, const WorkingCopy &copy, PathSpec *spec);

// The rows of one table into a new one, which appears when all are in it.
void copy_table(const std::filesystem::path &from, const std::filesystem::path &to);

} // namespace host
