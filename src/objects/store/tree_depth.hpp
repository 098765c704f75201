// How deep directories lie in each other, before anything of libgit2's goes down into them: it
// takes stack for each, and a peer can send as many as it likes.
#pragma once

#include "objects/store/git.hpp"

namespace zev {

// Whether what an object leads to (a tree, a commit's, a tag's) is no deeper than
// limits::path_depth. Also true for what has no trees or isn't there. May throw.
bool has_bounded_depth(git_repository *repository, const git_oid *id);

} // namespace zev
