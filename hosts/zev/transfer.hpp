// Transfer: what switch and merge share, bringing the files from one commit's state to another's.
#pragma once

#include "verb.hpp"

#include <optional>
#include <string>
#include <vector>

namespace host {

// What a checkout left out: files in use or refused, or all behind the user's break.
struct Transfer {
    uint64_t handled = 0, missed = 0;
    bool broken_off = false;
    bool whole() const { return !missed && !broken_off; }
};

// zRepositoryCheckout on a branch, by its full name; null for HEAD. With literal paths, of these
// alone. Throws when nothing came of it.
Transfer transfer(Host &host, const WorkingCopy &copy, const zwchar *branch, const Oid *target,
                  uint32_t options, const PathSpec *paths = nullptr);

// From HEAD's commit, null for none, to the target's state, all of it: what can't be had whole is
// taken back, files and index, and throws. Conflicts with local work are no reason to. `index` is
// the copy's own, locked.
class Passage {
  public:
    Passage(Host &host, const WorkingCopy &copy, Index *index, Commit *head, Commit *target);
    Transfer run(uint32_t options);
    // Throws, with what there is to say of it.
    [[noreturn]] void fail(const Transfer &taken) const;

  private:
    void take_back(const zwchar *branch);
    void put_back_entry(const std::string &path);

    Host &host_;
    const WorkingCopy &copy_;
    Index *index_;
    Commit *head_, *target_;
    OwnedIndex before_;
    uint64_t stuck_ = 0; // files that would not go back
};

// The files that differ between two commits, the first of which may be null; a rename is two.
std::vector<std::string> changed_files(Commit *from, Commit *to);

// Throws for conflicts that remain from an earlier merge; exit code 4.
void require_settled(const WorkingCopy &copy);
bool has_conflicts(const WorkingCopy &copy);
int tell_conflicts(Host &host); // and where to go on; gives the exit code

// The tracked files that are not as in HEAD, as a status shows them.
std::vector<std::string> local_work(const WorkingCopy &copy);

// Asks whether the local work may go to the trash, which it names; throws unless it may.
void confirm_trash(Host &host, const std::vector<std::string> &work);

// "a, b and 3 more"
std::string some_of(const std::vector<std::string> &names);

} // namespace host
