// Resolve by merging: conflicts of drawings, settled object by object.
#pragma once

#include "drawing_merge.hpp"

namespace host {

// What "zev resolve --merge" was given: paths, none for all, and whose is what.
struct MergeWish {
    Paths paths;
    Decisions decisions;
    bool dry = false;
};

// Words of the command line in their order: options by their first names, "paths" for each of
// `words`. Those behind a side are what it is to have, but for names of drawings and for the last
// `behind_mark`.
MergeWish parse_wish(const std::vector<std::string> &order, const std::vector<std::string> &words,
                     size_t behind_mark);

// Gives the exit code.
int resolve_by_merging(Host &host, const WorkingCopy &copy, const MergeWish &wish);

} // namespace host
