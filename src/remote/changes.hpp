// What a commit changed, as it is told to a server.
#pragma once

#include "objects/store/diff.hpp"
#include "objects/store/object.hpp"

namespace zev {

// The files that a commit adds, deletes and modifies beside its first parent, a root commit beside
// nothing, in the order of trees. Names are taken as they are spelled: one that got another case is
// deleted and added, which no comparison without regard to case would tell. A file that became a
// link, or may be run now, is modified. None at all is class 3. May throw.
DiffListPtr changes_of_commit(Commit *commit);

} // namespace zev
