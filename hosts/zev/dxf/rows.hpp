// Rows: the blocks of a drawing in its table, read by one merge and written as one pair stream.
#pragma once

#include "host.hpp"

#include <functional>
#include <string_view>
#include <vector>

namespace dxf {

struct Row {
    DrawingKey key;
    std::string_view value; // lent
};

inline bool before(const DrawingKey &a, const DrawingKey &b) {
    return a.tag != b.tag ? a.tag < b.tag : a.object < b.object;
}

// Path of the table with that id in a repository, whether it is there or not.
std::u16string table_path(Repository *repository, const Oid *id);

// The drawing's table, to look at its rows or to add some; never makes one. Both throw when it
// isn't there, `name` in the message.
host::OwnedTable look_at_table(Repository *repository, const Oid *id, const std::string &name);
host::OwnedTable open_table(Repository *repository, const Oid *id, const std::string &name);

// The work file that the table serves, relative to the work directory; "" when none is named.
std::string table_owner(Table *table);

// Visits the rows of `keys`, which stand in table order, with their places in `keys`. A key that
// the table lacks is passed over; the number of rows found comes back. The value is good during
// the call.
uint64_t read_rows(Table *table, const std::vector<DrawingKey> &keys, const Notify *notify,
                   const std::function<void(size_t place, std::string_view value)> &visit);

// That a drawing's rows are not those that were imported.
std::string mixed_text(const std::string &name);
[[noreturn]] void fail_mixed(const std::string &name);

// Highest tag of any row, 0 for a table without rows of a drawing.
uint64_t highest_tag(Table *table);

// Stores the rows in their order; throws unless all went in.
void write_rows(Table *table, const std::vector<Row> &rows, const Notify *notify);

} // namespace dxf
