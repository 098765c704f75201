// Needed rows: the blocks of a drawing that a copy of a server's project hasn't got yet. Updates
// bring the lists of objects alone; their blocks come when somebody looks into a drawing.
#pragma once

#include "remote_copy.hpp"

#include <vector>

namespace host {

// In a copy without a server nothing is done. Both throw where the server can't be asked; what it
// doesn't have is left to who reads it. `name` is for messages. True when a server was asked, or
// need not be, and the drawing has all its rows.
bool fetch_rows(const Host &host, const WorkingCopy &copy, Drawing *drawing,
                const std::string &name);
// Those of the keys, which stand in table order.
void fetch_rows(const Host &host, const WorkingCopy &copy, const Oid &table,
                const std::vector<DrawingKey> &keys, const std::string &name);

// Gives a table a tag that the server has given to nobody else. False where there is no server, or
// none that knows the table. Throws for a break.
bool ask_tag(const Host &host, const WorkingCopy &copy, Table *table, const std::string &name);

} // namespace host
