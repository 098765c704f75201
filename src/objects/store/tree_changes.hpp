// What changed between two trees, at the cost of what changed.
#pragma once

#include "objects/store/diff.hpp"
#include "zev/diff.h"

namespace zev {

// The list of zDiffTreeToTree. libgit2 goes through every directory of both trees; this walks them
// in step and skips what is equal, so that a commit of ten files costs the same in a project of
// any size. Subtrees that are equal need not be in the store.
DiffList *diff_trees(Tree *old_tree, Tree *new_tree, PathSpec *spec, DiffCancel cancel);

} // namespace zev
