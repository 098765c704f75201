// Keeps the repositories of the projects that were asked for last. What holds: none is in two
// hands, and none outlives the files that it was opened on without being noticed at its next use.
#include "network/rest/kept_projects.hpp"

#include "system/clock.hpp"
#include "system/os.hpp"

#include <algorithm>

namespace zev::rest {

namespace {

bool is_same(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && is_equal(a.st_ctim, b.st_ctim);
}

} // namespace

OpenedAt::OpenedAt(std::u16string place, const struct stat &status) : directory(status) {
    if (!os::stat((place + u"/config").c_str(), &config)) return;
    const int64_t now = os::calls.now();
    if (has_settled(directory.st_ctim, now) && has_settled(config.st_ctim, now))
        path = std::move(place);
}

bool OpenedAt::looks_like(const OpenedAt &other) const {
    return is_same(directory, other.directory) && is_same(config, other.config);
}

RepositoryPtr KeptProjects::take(const OpenedAt &place) {
    const auto found = std::ranges::find_if(
        kept_, [&](const Kept &kept) { return kept.place.path == place.path; });
    if (place.path.empty() || found == kept_.end()) return {};
    Kept kept = std::move(*found);
    kept_.erase(found);
    return kept.place.looks_like(place) ? std::move(kept.repository) : RepositoryPtr();
}

void KeptProjects::give_back(OpenedAt &&place, RepositoryPtr repository) noexcept {
    if (place.path.empty() || !repository) return;
    kept_.push_back({std::move(place), std::move(repository)}); // there is room
    if (kept_.size() > kMost) kept_.erase(kept_.begin());
}

} // namespace zev::rest
