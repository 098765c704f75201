// Server history: commits of a server's project that a copy of it has not got, and files in them,
// brought when somebody looks back. In a copy without a server all is as it is here.
#pragma once

#include "remote_copy.hpp"

namespace host {

// The newest commit to look back from: the server's, as far as it is known here, else HEAD's, also
// where HEAD follows no branch of the server.
OwnedCommit newest_commit(const WorkingCopy &copy);

// The commits before it, and the records of what they changed. Where they can't be had a warning
// says so, and the history ends at the last one that is here.
void bring_history(const Host &host, const WorkingCopy &copy);

// The commit of a revision, alone; what isn't known here is asked for.
OwnedCommit find_commit(const Host &host, const WorkingCopy &copy, const std::string &revision);

// The commit of a revision, with the file at a path of it where it has one, or with all its files.
OwnedCommit commit_with(const Host &host, const WorkingCopy &copy, const std::string &revision,
                        const std::string &path);

} // namespace host
