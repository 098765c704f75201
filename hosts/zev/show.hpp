// Show: a commit and its changes as they are shown.
#pragma once

#include "verb.hpp"

#include <string>

namespace host {

int64_t seconds_of(const Commit *commit);
std::string short_id(const Oid *id); // eight digits
std::string first_line(const std::string &text);

void print_commit(Host &host, const Commit *commit);
void print_change(Host &host, const DiffEntry *entry);

} // namespace host
