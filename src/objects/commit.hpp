#pragma once

#include "objects/records.hpp"

namespace zev {

// zCommitCreate for a caller that has more to write: without `sync_after` he syncs the tree
// himself once index and reference are on their way. Arguments are checked.
Commit *commit_create(const zwchar *reference, const zwchar *author, const zwchar *message,
                      Tree *tree, bool sync_after);

} // namespace zev
