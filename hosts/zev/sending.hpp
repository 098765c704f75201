// Sending: a commit, as both roads end it, and the road over a server.
#pragma once

#include "verb.hpp"

#include <functional>
#include <string>

namespace host {

// What the server will refuse from this user, of the changes that a spec selects and that are a
// concern of the verb's: better told now than after an hour's work. Takes the spec's notify away.
void warn_of_read_only(Host &host, const WorkingCopy &copy, PathSpec *changes,
                       const std::function<bool(const std::string &path)> &concerns = {});
// The same of what the index has by now.
void warn_of_read_only(Host &host, const WorkingCopy &copy,
                       const std::function<bool(const std::string &path)> &concerns);

// The end of a commit that was made. Both give the exit code.
int tell_commit(Host &host, const Commit *made, const std::string &author,
                const std::string &message);
int fail_conflicts(Host &host); // that stand in its way

// The keep-files of named directories are part of them.
void keep_named(const WorkingCopy &copy, Index *index, const Paths &paths);

// Brings the copy up to date, commits what the paths and their spec select, or for none of both
// what was added, and sends it. A spec without paths is of the whole copy. An empty author is the
// user at the server. Gives the exit code.
int send_commit(Host &host, const WorkingCopy &copy, const Paths &paths, OwnedSpec spec,
                const std::string &author, const std::string &message);

} // namespace host
