// What a commit changed, as it is told to a server; and the changes that a list of updates keeps.
#pragma once

#include "common/json.hpp"
#include "objects/store/diff.hpp"
#include "objects/store/object.hpp"

namespace zev {

// The files that a commit adds, deletes and modifies beside its first parent, a root commit beside
// nothing, in the order of trees. Names are taken as they are spelled: one that got another case is
// deleted and added, which no comparison without regard to case would tell. A file that became a
// link, or may be run now, is modified. None at all is class 3. May throw.
DiffListPtr changes_of_commit(Commit *commit);

// From the form that objects/history/revision_json.cpp has. Null, with the reason raised if it
// isn't that, for a change without a side and a path that no tree may have. May throw.
DiffListPtr changes_from_json(const Json *array);

} // namespace zev
