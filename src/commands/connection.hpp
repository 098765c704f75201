// Connections: the working copies that hosts have opened, and the tree of nodes of each.
#pragma once

#include "common/failure.hpp"
#include "objects/store/repository.hpp"
#include "zev/command.h"
#include "zev/repository.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct Node;

namespace zev {

enum NodeFlags : uint32_t {
    kDirectory = 1,
    kAdded = 16,
    kChanged = 32, // of a directory: something below it is
    kRenamed = 64,
    kConflicted = 128
};

// Names of one directory, case aside, as views of the nodes' own. A file and a directory may
// share one.
struct FoldedHash {
    size_t operator()(std::u16string_view name) const;
};
struct FoldedEqual {
    bool operator()(std::u16string_view a, std::u16string_view b) const;
};
using NodeNames = std::unordered_multimap<std::u16string_view, Node *, FoldedHash, FoldedEqual>;

} // namespace zev

// One tracked file or directory. Prefix is the path of the directory that holds it, with its
// slash, empty at the top; name is the last part of the path, of the root the working copy's.
// Trees are no deeper than limits::path_depth.
struct Node {
    std::u16string prefix{};
    std::u16string name;
    std::u16string old_prefix{}; // of a renamed one
    std::u16string old_name{};
    uint32_t flags = 0;
    uint32_t position = 0; // among the children that its directory was made with
    std::vector<std::unique_ptr<Node>> children{}; // of a directory, in the host's order
    std::unique_ptr<zev::NodeNames> names{};       // of a directory: its children

    bool is(uint32_t bits) const { return (flags & bits) != 0; }
};

struct Connection {
    zev::Owned<Repository, zRepositoryFree> repository;
    std::unique_ptr<Node> root;
    std::set<std::u16string> deleted{}; // paths that HEAD has and the index has not
    uint32_t uses = 0;                  // calls that stand on it; the table's, under its mutex
};

namespace zev {

// The connection of that very text, null without one; raises nothing.
Connection *find_connection(const zwchar *workdir);

// A connection for the length of one call. Its host may call back into the front meanwhile: nothing
// that would take the tree or the repository from under the call gets it `alone` then, which is
// class 7. False also without such a connection; that raises nothing.
class ConnectionUse {
  public:
    enum Kind { shared, alone };

    explicit ConnectionUse(const zwchar *workdir, Kind kind = shared);
    ~ConnectionUse();
    ConnectionUse(const ConnectionUse &) = delete;
    ConnectionUse &operator=(const ConnectionUse &) = delete;

    explicit operator bool() const { return connection_; }
    Connection *operator->() const { return connection_; }
    Connection &operator*() const { return *connection_; }
    Repository *repository() const { return connection_->repository.get(); }

  private:
    Connection *connection_;
};

// Enters a connection for the path and loads its tree; one that is there already is left alone.
bool connect(const zwchar *workdir);

// Makes the tree of a connection anew. May throw; it is empty then, as after any failure.
void reload(Connection &connection, bool lock);

// Frees all connections, when the library stops.
void drop_connections();

// The node at a path, case aside: `start` for an empty one, null when there is none. A file ends
// the walk, whatever is left of the path.
Node *find_node(Node *start, std::u16string_view path);

// Status for hosts, one of the kinds of zev/status.h.
int32_t node_status(const Node &node);

// "prefix/name" as it is, or as it was before a rename, with a slash behind a directory; empty for
// a node that was not renamed.
std::u16string node_path(const Node &node);
std::u16string node_old_path(const Node &node);

// Whether a text ends in ".gitkeep", in any case; the text without it.
bool ends_in_keep(std::u16string_view path);
std::u16string_view without_keep(std::u16string_view path);

} // namespace zev
