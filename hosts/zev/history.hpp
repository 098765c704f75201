// What the verbs of history share: a commit and its changes as they are shown.
#pragma once

#include "verbs.hpp"

#include <string>

namespace host {

int64_t seconds_of(const Commit *commit);
std::string short_id(const Oid *id); // eight digits

void print_commit(Host &host, const Commit *commit);
void print_change(Host &host, const DiffEntry *entry);

// "log --object": what the commits did to one object of a drawing.
int log_object(Host &host, const WorkingCopy &copy, const Commit *start, const std::string &path,
               const LogOptions &options);

// Which commits "log" shows, apart from their paths.
class CommitFilter {
  public:
    explicit CommitFilter(const LogOptions &options);
    bool passes(const Commit *commit) const;

  private:
    OwnedSpec authors_, not_authors_, texts_;
    int64_t since_ = INT64_MIN, until_ = INT64_MAX;
};

// The number of an object by its handle, or by "#N" for one that has none; and back.
uint64_t parse_object(const std::string &text);
std::string object_name(uint64_t number);

} // namespace host
