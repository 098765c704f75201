// Transfer: what switch and merge share, bringing the files from one commit's state to another's.
#pragma once

#include "verb.hpp"

#include <optional>
#include <string>
#include <vector>

namespace host {

// What a checkout left out: files in use or refused, or all behind the user's break.
struct Transfer {
    uint64_t missed = 0;
    bool broken_off = false;
    bool whole() const { return !missed && !broken_off; }
};

// zRepositoryCheckout on a branch, by its full name; null for HEAD. Throws when nothing came of it.
Transfer transfer(Host &host, const WorkingCopy &copy, const zwchar *branch, const Oid *target,
                  uint32_t options);

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
