// Forecast: what the server has that this copy has not, file by file, before it comes.
#pragma once

#include "dxf/merge.hpp"
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

// What becomes of the drawings in a list that are changed here, too: counts and conflicts, of those
// that can be brought together or have objects in conflict. The lists of objects and the rows that
// are missing come by `remote`.
using Meetings = std::map<std::string, dxf::Merge>;
Meetings foresee_meetings(const Host &host, const WorkingCopy &copy, Remote *remote,
                          const Entries &list, const std::set<std::string> &here);

struct Forecast {
    LastChanges last;
    std::map<std::string, ObjectCount> objects;
    std::set<std::string> here;
    Meetings meetings;
    void print(Host &host, const Entries &list) const;
};

} // namespace host
