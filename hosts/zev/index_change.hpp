// Changes of the index that git may get in the way of.
#pragma once

#include "copy.hpp"

#include <chrono>
#include <thread>

namespace host {

// Whether the failure that the library left is that another program had the index or has written it
// since we read it: what was to be done can be done once more.
inline bool was_overtaken() {
    constexpr int32_t kGitLocked = -14, kGitModified = -15;
    const int32_t code = zErrorCode();
    return (zErrorClass() == kLocked && code == kGitLocked) ||
           (zErrorClass() == kGit && code == kGitModified);
}

// Tries until it comes through, or something else is the matter: half a second at most. What an
// attempt did that failed `undo` takes back.
template <class Attempt, class Undo> void repeat_overtaken(Attempt attempt, Undo undo) {
    constexpr int kTries = 25;
    for (int tries = 1; !attempt(tries == 1); ++tries) {
        const Failed failure = raised();
        const bool goes_on = tries < kTries && was_overtaken();
        undo();
        if (!goes_on) throw failure;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

// `work(index, is_first)` on the index as its file has it under the lock, then written. Git knows
// no lock of ours: where it has come in between, `undo()` takes back what the work did besides, and
// the work is repeated. Gives the index, still locked.
template <class Work, class Undo>
OwnedIndex change_index(const WorkingCopy &copy, Work work, Undo undo) {
    OwnedIndex index;
    const auto attempt = [&](bool is_first) {
        index.reset(); // its lock is taken anew
        index = copy.lock_index();
        work(index.get(), is_first);
        return zIndexWrite(index.get());
    };
    repeat_overtaken(attempt, undo);
    return index;
}
template <class Work> OwnedIndex change_index(const WorkingCopy &copy, Work work) {
    return change_index(copy, work, [] {});
}

// `make(index)` under the index's lock, until it gives true: nobody has come in between. False,
// without it, where the index has conflicts.
template <class Make> bool make_unless_conflicts(const WorkingCopy &copy, Make make) {
    bool has_conflicts = false;
    const auto attempt = [&](bool) {
        const OwnedIndex index = copy.lock_index();
        has_conflicts = zIndexHasConflicts(index.get());
        return has_conflicts || make(index.get());
    };
    repeat_overtaken(attempt, [] {});
    return !has_conflicts;
}

} // namespace host
