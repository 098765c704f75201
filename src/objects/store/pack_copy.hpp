// A pack of whole objects, built by copying what packs here have of them: git compresses every
// object of a pack anew only where it has to, libgit2 always.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <git2.h>

namespace zev {

// Is given each piece; another result than 0 ends the walk.
using PackTake = std::function<int32_t(const void *bytes, uint64_t size)>;

// The pack of the objects of these ids, each once, in any order. What lies in no pack of the
// repository as a whole object is read and compressed. Gives the result of `take` that ended it, 0
// at the end, else a code of libgit2 with its error; `written` counts the objects that were given
// out. May throw.
int copy_pack(git_repository *repository, std::vector<git_oid> ids, const PackTake &take,
              uint64_t &written);

} // namespace zev
