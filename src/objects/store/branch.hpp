// The record of a branch, for the neighbours.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/branch.h"

struct Branch {
    Repository *owner;
    zev::Wide name;   // short
    zev::Wide merge;  // full name, the branch's identity
    zev::Wide origin; // of an upstream: full name of its local branch
    Oid id{};         // result of zBranchResolve
};

namespace zev {

using BranchPtr = Owned<Branch, zBranchFree>;

} // namespace zev
