// Of packs what the neighbours need.
#pragma once

#include "objects/store/git.hpp"
#include "zev/pack.h"

#include <git2/pack.h>

namespace zev {

using GitPackBuilder = Owned<git_packbuilder, git_packbuilder_free>;

// A builder on all cores, which looks for differences between objects only with `deltas`. Gives
// libgit2's code.
int new_pack_builder(GitPackBuilder &builder, git_repository *handle, bool deltas);

// zPackWriterCommit for what a peer has sent: also false, with nothing left, where an object has
// more than `most` bytes or not the form of its type.
bool commit_formed(PackWriter *writer, uint64_t most);

} // namespace zev
