// The store: who there is, who may what in a project, and the secrets, each in a file that several
// servers may share.
//
// Records are read once and kept, until their file is seen to be another one. They are changed
// under the file's lock, as they are on the disk then, and put in place whole. Every function here
// may be called from several threads. A file that can't be read, or is damaged, gives null,
// logged, and is never replaced: nobody is let in by it, until somebody mends it.
#pragma once

#include "records.hpp"
#include "zev/repository.h"

#include <functional>
#include <memory>

namespace zevauth {

template <class T> using Shared = std::shared_ptr<const T>;

Shared<Team> team();
Shared<Rights> rights(Repository *repository);
Shared<Secrets> secrets();

// The edit gets the records as they are, and a status other than Z_AUTH_DONE calls the change off.
// What it leaves as it was isn't written.
int32_t change_team(const std::function<int32_t(Team &)> &edit);
// Ids of users and groups that are no more are gone from the roles before the edit sees them.
int32_t change_rights(Repository *repository,
                      const std::function<int32_t(Rights &, const Team &)> &edit);
// Within the edit of a team alone, whose lock covers this file too. Secrets of other users than
// the team's and `uid` go; an empty hash takes this user's away.
bool set_secret(const Team &team, int32_t uid, const std::string &hash);

// Makes the files of who there is and of the secrets on the first start.
bool prepare_store();

} // namespace zevauth
