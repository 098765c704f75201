// Conflicts, their nodes and their analysis, for their own files and their neighbours.
#pragma once

#include "objects/work/index.hpp"
#include "zev/conflict.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zev {

using EntryPtr = Owned<IndexEntry, zIndexEntryFree>;

} // namespace zev

struct Conflict { // one entry at least, each of its own path
    zev::EntryPtr ancestor;
    zev::EntryPtr ours;
    zev::EntryPtr theirs;
};

struct ConflictSide { // not without both
    zev::EntryPtr entry;
    zev::EntryPtr ancestor;
    int32_t status;

    const char *path() const { return zev::git_entry((entry ? entry : ancestor).get())->path; }
};

namespace zev {

// The sides of one node, each path once, in the order in which they came.
struct ConflictSides {
    std::vector<ConflictSide> list;
    std::unordered_map<std::string, size_t> by_path; // position in the list

    const ConflictSide *at(uint64_t index) const {
        return index < list.size() ? &list[index] : nullptr;
    }
    const ConflictSide *find(const char *path) const {
        auto known = by_path.find(path);
        return known == by_path.end() ? nullptr : &list[known->second];
    }
};

} // namespace zev

struct ConflictNode {
    std::u16string path;
    std::u16string type{}; // at the first zConflictNodeType, while it is made of two statuses
    zev::ConflictSides theirs{};
    zev::ConflictSides ours{};
    uint32_t solution = Z_CONFLICT_USE_THEIRS;
    uint32_t options = 0;
    bool resolved = false;
};

struct ConflictAnalysis {
    const Notify *notify = nullptr;
    Index *index; // null once the analysis was handed out
    // Directories of HEAD as they were asked for, "" for the root; null where there is none. Each
    // is read once: libgit2 keeps no large tree, and would unpack it for every file in it.
    std::unordered_map<std::string, zev::git::Tree> head{};
    std::unordered_map<std::u16string, ConflictNode *> by_path{}; // of nodes, folded
    std::vector<std::unique_ptr<ConflictNode>> nodes{};
};

namespace zev {

using ConflictPtr = Owned<Conflict, zConflictFree>;
using AnalysisPtr = Owned<ConflictAnalysis, zConflictAnalysisFree>;

// Copies what is given, also for two deleted sides, which only an index can hold. Raises.
ConflictPtr conflict_of(const git_index_entry *ancestor, const git_index_entry *ours,
                        const git_index_entry *theirs);

// Whether the work directory has the file of an entry: a regular one, or a link for the entry of
// a link, and not behind a link. May throw.
bool entry_on_disk(const Index *index, const git_index_entry &entry);

// Carries out nodes as zConflictNodeResolve does one, each told with its outcome. Many together
// cost far less: what goes to the trash is synced in batches. May throw.
void resolve_nodes(Index *index, const std::vector<ConflictNode *> &nodes,
                   const std::function<void(ConflictNode &node, bool done)> &told);

} // namespace zev
