// Files that moved without a change: what went and what came, paired by content in one pass.
// libgit2 would compare each with each, and stops doing so at a thousand.
#pragma once

#include <git2.h>

#include <cstdint>
#include <deque>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zev {

constexpr size_t kNoSource = SIZE_MAX;

// Of `count` changes, `gone(i)` and `come(i)` give the id of the content that went or came with the
// i-th, null for none; the ids are lent. Each that came takes the first of the same content that is
// still free. Both ends of such a pair get the position of the one that went, so that a change
// whose source is itself has gone elsewhere; the others get kNoSource.
template <class Gone, class Come>
std::vector<size_t> pair_identical(size_t count, Gone gone, Come come) {
    const auto key = [](const git_oid *id) {
        return std::string_view(reinterpret_cast<const char *>(id->id), sizeof id->id);
    };
    std::vector<size_t> sources(count, kNoSource);
    std::unordered_map<std::string_view, std::deque<size_t>> free;
    for (size_t i = 0; i < count; ++i)
        if (const git_oid *id = gone(i)) free[key(id)].push_back(i);
    for (size_t i = 0; i < count && !free.empty(); ++i) {
        const git_oid *id = come(i);
        const auto found = id ? free.find(key(id)) : free.end();
        if (found == free.end() || found->second.empty()) continue;
        const size_t source = found->second.front();
        found->second.pop_front();
        sources[i] = sources[source] = source;
    }
    return sources;
}

// Of the regular files of a comparison.
std::vector<size_t> pair_identical(const git_diff *diff); // may throw

} // namespace zev
