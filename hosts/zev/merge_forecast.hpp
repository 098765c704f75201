// Merge forecast: what a merge of the current state with a commit would meet, file by file.
#pragma once

#include "verb.hpp"

namespace host {

struct Outlook {
    uint64_t merged = 0, conflicts = 0; // drawings that come together; files that don't
};

// Tells of each file that both sides changed since their common commit, and changes nothing. Ours
// is what stands in the work directory. Without `merges` drawings stay apart, too.
Outlook foresee_merge(Host &host, const WorkingCopy &copy, const Oid &base, Commit *theirs,
                      bool merges);

} // namespace host
