// Making a commit, for the operations that have a step of their own in it.
#pragma once

#include "objects/store/object.hpp"

#include <functional>
#include <span>
#include <vector>

namespace zev {

// zCommitCreateWith for a caller with work of his own between the first sync and the move of the
// reference: false from `before_move` ends it there. Arguments are checked.
Commit *commit_create(const zwchar *reference, const zwchar *author, const zwchar *message,
                      Tree *tree, const std::function<bool()> &before_move = {},
                      std::span<const Oid> others = {});

// Where the history of a shallow clone was cut: these have no parents here, whatever they say.
std::vector<git_oid> shallow_commits(git_repository *git);
bool is_one_of(const std::vector<git_oid> &ids, const git_oid *id);

} // namespace zev
