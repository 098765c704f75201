// The record of a reference, for the neighbours.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/reference.h"

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

struct Reference {
    zev::git::Reference handle;
    Repository *owner;
    zev::Wide path; // the reference's file, at the first zReferencePath
    Oid id{};       // result of zReferenceResolve
};

namespace zev {

using ReferencePtr = Owned<Reference, zReferenceFree>;

// Whether there is a reference of a full name, and whether the repository's head has a commit:
// none, raised, where that can't be told. What can't be read must not count as what isn't there:
// whoever goes on as from nothing takes away what is.
std::optional<bool> reference_there(Repository *repository, const zwchar *name); // may throw
std::optional<bool> head_born(Repository *repository);

// Where the file of a reference lies, or would, with a last slash. HEAD and its like, and what a
// bisection notes, each worktree has for itself; all others lie where the worktrees share them.
std::string reference_root(git_repository *git, std::string_view name); // may throw

// For a reference that could not be made: the log that libgit2 wrote ahead of it goes, which else
// tells of a branch that was lost. A log with more in it stays.
void drop_begun_log(git_repository *git, const char *name);

// libgit2's walks pass over a reference whose file holds none, as after a crash or by other hands:
// whoever is to know all of them asks for such a one here, with the names that a walk has met. Its
// name, with what is wrong raised; empty where there is none. May throw.
std::string find_damaged_reference(git_repository *git, const std::unordered_set<std::string> &met);

} // namespace zev
