// How deep directories lie in each other, and how much they unfold to, before anything goes down
// into them: that takes stack for each level and time for each file, and a peer can send trees that
// are a million of either for a few bytes.
#pragma once

#include "objects/store/git.hpp"

namespace zev {

// Whether what an object leads to (a tree, a commit's, a tag's) has no directory below more than
// limits::path_depth others, and unfolds to no more than limits::tree_entries. Also true for what
// has no trees; what isn't there counts for nothing. May throw.
bool has_bounded_extent(git_repository *repository, const git_oid *id);

// The same for what a tree has beside another one that was found bounded, at the cost of what
// differs; null is the empty tree. All of that must be there: what isn't is raised as libgit2 tells
// it, and all else as out of range. May throw.
bool has_bounded_change(git_tree *before, git_tree *after);

} // namespace zev
