// Merge state: a merge that ended in conflicts, until the commit that settles it.
#pragma once

#include "copy.hpp"

namespace host {

inline constexpr const zwchar *kMergeHead = u"MERGE_HEAD"; // as git calls what is being merged

// The line that the commit which settles the merge is to end with; empty without one.
std::string unfinished_merge(const WorkingCopy &copy);
void finish_merge(const WorkingCopy &copy);
void require_no_merge(const WorkingCopy &copy); // throws while there is one
void forget_merge(const WorkingCopy &copy);     // if nothing is left of it

bool is_as_head(const WorkingCopy &copy, Index *index);

} // namespace host
