// The table of connections, by the text that the host connected with: two spellings of one
// directory are two connections.
#include "commands/connection.hpp"

#include "commands/node.hpp"
#include "common/global.hpp"

using namespace zev;

namespace {

using Connections = std::map<std::u16string, Connection, std::less<>>;

// Made by the first connect, freed when the library stops.
constinit Connections *table = nullptr;

Connections &open_table() {
    if (!table) {
        table = new Connections;
        at_stop(drop_connections);
    }
    return *table;
}

} // namespace

namespace zev {

Connection *find_connection(const zwchar *workdir) {
    if (!table || !workdir) return nullptr;
    const auto found = table->find(std::u16string_view(workdir));
    return found == table->end() ? nullptr : &found->second;
}

bool connect(const zwchar *workdir) {
    Connections &connections = open_table();
    if (find_connection(workdir)) return true;
    Connection made;
    made.repository.reset(zRepositoryOpen(workdir));
    if (!made.repository) return false;
    made.root = make_directory({}, workdir);
    connections.emplace(workdir, std::move(made));
    zCommandReload(workdir, nullptr, false);
    return true;
}

void drop_connections() { delete std::exchange(table, nullptr); }

} // namespace zev

bool zCommandConnect(const zwchar *workdir) try { return connect(workdir); } catch (...) {
    return fail_thrown();
}

// Out of the table first: nothing finds it while it goes.
void zCommandDisconnect(const zwchar *workdir) try {
    if (find_connection(workdir)) table->extract(workdir);
} catch (...) {
    fail_thrown();
}
