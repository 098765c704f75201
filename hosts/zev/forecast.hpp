// Forecast: what the server has that this copy has not, file by file, before it comes.
#pragma once

#include "remote_copy.hpp"
#include "verb.hpp"

#include <map>
#include <set>

namespace host {

using Entries = std::vector<const DiffEntry *>; // lent by a list
Entries entries_of(const DiffList *list);

// Who changed a file last on the server's branch.
struct LastChange {
    Oid commit;
    std::string author;
    int64_t seconds = 0;
};
using LastChanges = std::map<std::string, LastChange>;

// Of the files that a list names as they will be called, from the commit back, as far as the
// history goes. With `remote`, which may be null, what is not known here is asked for.
LastChanges last_changes(const Host &host, const WorkingCopy &copy, Remote *remote,
                         const Commit *newest, const Entries &list);

struct ObjectCount {
    uint64_t changed = 0, all = 0; // changed: added and removed ones, too
};
// Of the drawings in a list; of those whose list of objects is here, or comes by `remote`.
std::map<std::string, ObjectCount> count_objects(const Host &host, const WorkingCopy &copy,
                                                 Remote *remote, const Entries &list);

// Files that are not as committed: an update brings theirs and ours together, or leaves a conflict.
std::set<std::string> changed_here(const WorkingCopy &copy);

struct Forecast {
    LastChanges last;
    std::map<std::string, ObjectCount> objects;
    std::set<std::string> here;
    void print(Host &host, const Entries &list) const;
};

} // namespace host
