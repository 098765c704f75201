#pragma once

#include "objects/records.hpp"

#include <string>

namespace zev {

// The repository's own configuration file, without the user's and the system's settings. Null
// with libgit2's error.
git::Config local_config(git_repository *handle);

// A text of a configuration. False, with nothing raised, when the key is missing.
bool config_text(git_config *config, const char *key, std::string &text);

} // namespace zev
