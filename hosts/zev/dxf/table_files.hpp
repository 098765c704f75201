// Table files: the files of a table's database, looked at without opening it. Opening a damaged
// one may throw away what is behind the damage.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace dxf {

// Tells what is wrong, by file name. True if the database can be opened without harm.
bool check_table_files(const std::filesystem::path &directory, bool sums,
                       const std::function<void(const std::string &what)> &tell);

} // namespace dxf
