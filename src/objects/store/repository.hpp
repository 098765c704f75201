// The record of a repository, the root of every other record of the object store: pointers to it
// are lent, it outlives what was opened through it.
#pragma once

#include "objects/store/git.hpp"
#include "zev/repository.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

namespace zev {

// The commits at which the history of a shallow clone ends, in order, as their file had them when
// it looked like `seen`, all zero for none.
struct ShallowEnds {
    std::u16string path{};
    std::vector<git_oid> ids{};
    struct stat seen {};
};

} // namespace zev

struct Repository {
    zev::git::Repository handle;
    zev::Wide path;    // Git directory, at the first zRepositoryPath
    zev::Wide workdir; // work tree, at the first zRepositoryWorkdir
    zev::Wide trash;   // at the first zRepositoryTrash
    zev::Wide owner;   // of the project; set by a server, never stored
    zev::Wide name;
    zev::Wide url;
    Oid id{};                            // all zero until known
    std::optional<git_oid> index_head{}; // HEAD when the index was read; zeros for none
    zev::ShallowEnds ends{};
    Index *writer = nullptr; // the index that holds the lock, lent
};

namespace zev {

using RepositoryPtr = Owned<Repository, zRepositoryFree>;

// The repository's own configuration file, without the user's and the system's settings. Null
// with libgit2's error.
git::Config local_config(git_repository *handle);

// While one lives, no repository that is opened has any settings but its own: a service is not to
// act otherwise for the account that it runs under. One at a time.
class OwnSettingsOnly {
  public:
    OwnSettingsOnly();
    ~OwnSettingsOnly();
    OwnSettingsOnly(const OwnSettingsOnly &) = delete;
    OwnSettingsOnly &operator=(const OwnSettingsOnly &) = delete;

  private:
    static constexpr size_t kLevels = 4;
    git_buf paths_[kLevels]{}; // where libgit2 looked before
};

// Where a path of an index lies: the work directory with the path behind it; empty for a bare one.
std::u16string full_path(const Repository *repository, std::string_view path);

// A text of a configuration. False, with nothing raised, when the key is missing.
bool config_text(git_config *config, const char *key, std::string &text);

// Whether its origin is a server of this product, which has what is not here. That of a clone which
// git made is none: such a copy has all, but for what its file "shallow" tells.
bool follows_server(Repository *repository);

} // namespace zev
