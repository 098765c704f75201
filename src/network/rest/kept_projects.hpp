// Repositories that stay open from one request to the next: opening one reads its settings and
// lists its packs, which takes longer than most answers.
//
// Another process may change or replace a project at any time. What is in its store is looked up
// anew for each request, settings are not: a repository is used again only while its directory and
// its settings look as they did before it was opened.
#pragma once

#include "objects/store/repository.hpp"

#include <string>
#include <vector>

#include <sys/stat.h>

namespace zev::rest {

// Where a repository was opened, and how that looked before.
struct OpenedAt {
    std::u16string path{}; // empty when it can't be kept
    struct stat directory {
    }, config{};

    OpenedAt() = default;
    OpenedAt(std::u16string place, const struct stat &status);
    bool looks_like(const OpenedAt &other) const;
};

// Belongs to one thread.
class KeptProjects {
  public:
    KeptProjects() { kept_.reserve(kMost + 1); }

    // The repository that was kept for a place; null where none was, or it looked otherwise.
    RepositoryPtr take(const OpenedAt &place);
    void give_back(OpenedAt &&place, RepositoryPtr repository) noexcept;
    void clear() { kept_.clear(); }

  private:
    static constexpr size_t kMost = 8; // each holds its packs open

    struct Kept {
        OpenedAt place;
        RepositoryPtr repository;
    };
    std::vector<Kept> kept_; // the one that was used last is the last
};

} // namespace zev::rest
