// Making a commit, for the operations that have a step of their own in it.
#pragma once

#include "objects/store/object.hpp"

#include <functional>
#include <span>

namespace zev {

// zCommitCreateWith for a caller with work of his own around the move of the reference. False from
// `before_move`, behind the first sync, ends it there. What `after_move`, which gets the commit,
// does reaches the disk with the second sync, as the move does; where it gives false the move is
// the caller's to take back. Arguments are checked.
Commit *commit_create(const zwchar *reference, const zwchar *author, const zwchar *message,
                      Tree *tree, const std::function<bool()> &before_move = {},
                      std::span<const Oid> others = {},
                      const std::function<bool(const Oid &made)> &after_move = {});

// Whether the history of a shallow clone was cut at a commit: it has no parents here, whatever it
// says. What the clone knows of it is read again when its file differs.
bool is_cut(Repository *repository, const git_oid *commit); // may throw

} // namespace zev
