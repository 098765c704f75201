// Amend: the last commit made anew, with what has changed since, or with other words.
#pragma once

#include "verb.hpp"

namespace host {

struct Amendment {
    const Paths &paths;
    PathSpec *spec;              // null: what was added
    std::string author, message; // empty: as they were
};

// The new commit has the parents of the old one, and the branch moves from the one to the other.
// Throws in a copy of a server's project: the server has the commit. Gives the exit code.
int amend(Host &host, const WorkingCopy &copy, const Amendment &amendment);

} // namespace host
