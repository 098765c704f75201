// Listing: tracked files with their states, as "changes" and "ls" show them. Nothing is written,
// and what is gone from the disk is missing.
#pragma once

#include "verb.hpp"

#include <vector>

namespace host {

// The old path is that of a rename; else it is empty. A directory that is tracked for its own sake
// ends in a slash.
struct Listed {
    int32_t kind = 0;
    std::string old, path;
};

// What a status tells of tracked files that aren't as in HEAD, in the order of its paths.
std::vector<Listed> listed_changes(const StatusList *list);

void print_listed(Host &host, const char *type, const Listed &listed);

} // namespace host
