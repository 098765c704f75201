// The record of a reference, for the neighbours.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/reference.h"

struct Reference {
    zev::git::Reference handle;
    Repository *owner;
    zev::Wide path; // the reference's file, at the first zReferencePath
    Oid id{};       // result of zReferenceResolve
};

namespace zev {

using ReferencePtr = Owned<Reference, zReferenceFree>;

// For a reference that could not be made: the log that libgit2 wrote ahead of it goes, which else
// tells of a branch that was lost. A log with more in it stays.
void drop_begun_log(git_repository *git, const char *name);

} // namespace zev
