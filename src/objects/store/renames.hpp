// Files that moved without a change: what went and what came, paired by content in one pass.
// libgit2 would compare each with each, and stops doing so at a thousand.
#pragma once

#include <git2.h>

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zev {

constexpr size_t kNoSource = SIZE_MAX;

// One end of a change: what went from a path, or came to it. Lent.
struct Moved {
    const git_oid *id = nullptr; // null: nothing did
    const char *path = nullptr;
};

// Of `count` changes, `gone(i)` and `come(i)` give what went or came with the i-th. Each that came
// takes the first of the same content that is still free, of the same name if there is one: many
// files are empty. Both ends of such a pair get the position of the one that went, so that a change
// whose source is itself has gone elsewhere; the others get kNoSource.
template <class Gone, class Come>
std::vector<size_t> pair_identical(size_t count, Gone gone, Come come) {
    std::vector<size_t> sources(count, kNoSource);
    for (const bool by_name : {true, false}) {
        const auto key = [&](const Moved &moved) {
            std::string text(reinterpret_cast<const char *>(moved.id->id), sizeof moved.id->id);
            const std::string_view path(moved.path);
            return by_name ? text.append(path.substr(path.rfind('/') + 1)) : text;
        };
        std::unordered_map<std::string, std::deque<size_t>> free;
        for (size_t i = 0; i < count; ++i)
            if (const Moved moved = gone(i); moved.id && sources[i] == kNoSource)
                free[key(moved)].push_back(i);
        for (size_t i = 0; i < count && !free.empty(); ++i) {
            const Moved moved = sources[i] == kNoSource ? come(i) : Moved{};
            const auto found = moved.id ? free.find(key(moved)) : free.end();
            if (found == free.end() || found->second.empty()) continue;
            const size_t source = found->second.front();
            found->second.pop_front();
            sources[i] = sources[source] = source;
        }
    }
    return sources;
}

// Of the regular files of a comparison.
std::vector<size_t> pair_identical(const git_diff *diff); // may throw

} // namespace zev
