// Table files: the files of a table's database, looked at without opening it. Opening a damaged
// one may throw away what is behind the damage.
#pragma once

#include <string>
#include <vector>

namespace zev::verify {

struct TableFault {
    std::string file;
    const char *what; // is wrong with it
    bool is_of_rows;  // a file of rows: one that nothing names goes with the next opening
    std::string text() const { return file + " " + what; }
};

// The directory ends with a slash. Without `sums` only the ends of files are looked at. Without
// faults the database can be opened without harm. Both may throw.
std::vector<TableFault> find_table_faults(const std::u16string &directory, bool sums);
bool still_at_fault(const std::u16string &directory, const TableFault &fault, bool sums);

} // namespace zev::verify
