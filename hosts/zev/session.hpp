// Session: what surrounds a verb that changes a working copy: putting right what a killed process
// left, before; noting what went to the trash, after.
#pragma once

#include "verb.hpp"

#include <optional>
#include <set>
#include <string>

namespace host {

// What the last command that took anything put into the trash.
struct Journal {
    std::string verb;
    int64_t seconds = 0;
    std::vector<std::string> slots; // "<2 digits>/<38 digits>"
};
std::optional<Journal> read_journal(const WorkingCopy &copy);
void write_journal(const WorkingCopy &copy, const Journal &journal);

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
