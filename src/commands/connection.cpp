// The table of connections, by the text that the host connected with: two spellings of one
// directory are two connections.
//
// The mutex is held for the table and the counts of uses only, never while a repository is opened
// or freed, a tree made, or a host called. A connection itself is for one thread at a time.
#include "commands/connection.hpp"

#include "commands/node.hpp"
#include "common/global.hpp"

#include <cassert>
#include <mutex>

using namespace zev;

namespace {

using Connections = std::map<std::u16string, Connection, std::less<>>;

constinit std::mutex mutex;

// Made by the first connect, freed when the library stops.
constinit Connections *table = nullptr;

Connection *find(const zwchar *workdir) {
    if (!table || !workdir) return nullptr;
    const auto found = table->find(std::u16string_view(workdir));
    return found == table->end() ? nullptr : &found->second;
}

// The one that is there if another thread was faster.
void enter(const zwchar *workdir, Connection made) {
    const std::lock_guard guard(mutex);
    if (!table) {
        table = new Connections;
        at_stop(drop_connections);
    }
    table->try_emplace(workdir, std::move(made));
}

} // namespace

namespace zev {

Connection *find_connection(const zwchar *workdir) {
    const std::lock_guard guard(mutex);
    return find(workdir);
}

ConnectionUse::ConnectionUse(const zwchar *workdir, Kind kind) {
    const std::lock_guard guard(mutex);
    connection_ = find(workdir);
    if (!connection_) return;
    if (kind == alone && connection_->uses) {
        connection_ = nullptr;
        raise_locked(workdir);
        return;
    }
    ++connection_->uses;
}

ConnectionUse::~ConnectionUse() {
    if (!connection_) return;
    const std::lock_guard guard(mutex);
    assert(connection_->uses > 0);
    --connection_->uses;
}

bool connect(const zwchar *workdir) {
    if (find_connection(workdir)) return true;
    Connection made;
    made.repository.reset(zRepositoryOpen(workdir));
    if (!made.repository) return false;
    made.root = make_directory({}, workdir);
    enter(workdir, std::move(made));
    zCommandReload(workdir, nullptr, false);
    return true;
}

void drop_connections() {
    Connections *dropped;
    {
        const std::lock_guard guard(mutex);
        dropped = std::exchange(table, nullptr);
    }
    delete dropped;
}

} // namespace zev

bool zCommandConnect(const zwchar *workdir) try { return connect(workdir); } catch (...) {
    return fail_thrown();
}

// Out of the table first: nothing finds it while it goes.
void zCommandDisconnect(const zwchar *workdir) try {
    Connections::node_type dropped;
    const std::lock_guard guard(mutex);
    const Connection *connection = find(workdir);
    if (!connection) return;
    if (connection->uses)
        raise_locked(workdir);
    else
        dropped = table->extract(workdir);
} catch (...) {
    fail_thrown();
}
