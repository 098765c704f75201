// Session: what surrounds a verb that changes a working copy: putting right what a killed process
// left, before; noting what went to the trash, after.
#pragma once

#include "verb.hpp"

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace host {

// What a command put into the trash.
struct JournalEntry {
    std::string verb;
    int64_t seconds = 0;
    uint64_t count = 0;             // how many items
    std::vector<std::string> slots; // of those not brought back, "<2 digits>/<38 digits>"
    bool undone = false;            // what is left of it, the user has left there
};

// Of the last twenty commands that took anything, oldest first.
using Journal = std::vector<JournalEntry>;
Journal read_journal(const WorkingCopy &copy);
// The journal as it is by now, changed and written, while no other command does.
void change_journal(const WorkingCopy &copy, const std::function<void(Journal &)> &change);

// Puts index and branch back to what a process that died found them as, and says so. Nothing where
// nobody died, where one is still at work, or where somebody has gone on from there.
void recover(Host &host, const WorkingCopy &copy);

class Session {
  public:
    // Without a working copy it does nothing; the verb says that there is none.
    Session(Host &host, const Verb &verb);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

  private:
    Host &host_;
    const Verb &verb_;
    std::optional<WorkingCopy> copy_; // of verbs that may put something into the trash
    std::set<std::string> before_;    // the slots that there were
    int64_t began_ = 0;
};

} // namespace host
