// Merge state: a merge that ended in conflicts, until the commit that settles it.
#pragma once

#include "verb.hpp"

#include <optional>

namespace host {

// References that name what is being merged. Git knows the first one, and its next commit names it
// as a parent. Of a merge that left out files nobody may say that, so that it has one of its own.
inline constexpr const zwchar *kMergeHead = u"MERGE_HEAD";
inline constexpr const zwchar *kPartHead = u"ZEV_PART_HEAD";

struct Unsettled {
    Oid theirs;
    bool whole; // the commit that settles it has theirs as a parent
};
std::optional<Unsettled> unsettled_merge(const WorkingCopy &copy);
// `message` is that of the commit that will end it, unless that has words of its own.
void note_merge(const WorkingCopy &copy, const Unsettled &merge, const std::string &message);
// What was noted, by a merge of git's too; empty where none is under way.
std::string noted_message(const WorkingCopy &copy);
void finish_merge(const WorkingCopy &copy);
void require_no_merge(const WorkingCopy &copy); // throws while there is one
// The same, but for one of the same commit that was cut short and can go on.
void require_no_other_merge(const WorkingCopy &copy, const Oid &theirs);

// From before a merge brings its first file: whatever cuts it short, it is known as one of which
// only a part came in, until it is noted as a whole one. `index` is locked, and outlives it.
class BegunMerge {
  public:
    BegunMerge(const WorkingCopy &copy, Index *index, const Oid &theirs);
    ~BegunMerge(); // where nothing came in, or all is committed, nothing is left of it
    BegunMerge(const BegunMerge &) = delete;
    BegunMerge &operator=(const BegunMerge &) = delete;
    // Before a commit that has all that came in.
    void end() const;

  private:
    const WorkingCopy &copy_;
    Index *index_;
};

// For whoever looks; nothing where none is under way. Where stdout is for programs it is said
// beside it.
void tell_merge(Host &host, const WorkingCopy &copy, bool conflicts, bool beside = false);
// Before a commit that ends it.
void tell_merge_ends(Host &host, const Unsettled &merge);

// What a commit without theirs as a parent says of it.
std::string part_note(const Oid &theirs);

bool is_as_head(const WorkingCopy &copy, Index *index);

} // namespace host
