// Lists of status and diff entries, which share their layout, and work on diff lists for the
// families above.
#pragma once

#include "common/failure.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/repository.hpp"
#include "zev/diff.h"
#include "zev/error.h"
#include "zev/hashmap.h"

#include <memory>

struct DiffFile {
    Oid id;
    zev::Wide path;
    uint64_t size;
    uint32_t flags;
    uint16_t mode;
    uint16_t id_abbrev;
};

struct DiffEntry {
    int32_t status; // kinds 0 to 10
    uint32_t flags;
    uint16_t similarity;
    uint16_t files;
    std::unique_ptr<DiffFile> old_file; // either may be missing
    std::unique_ptr<DiffFile> new_file;
};

// A vector that owns its entries, and a map from path to entry, made at the first look-up.
struct DiffList {
    Vector entries;
    zev::Owned<Hashmap, zHashmapFree> by_path;
};

namespace zev {

using DiffListPtr = Owned<DiffList, zDiffListFree>;

template <class List> void free_list(List *list) {
    if (!list) return;
    zVectorCleanup(&list->entries);
    delete list;
}

// The entry of a path, by a map that the first look-up makes. A miss raises not found.
template <class Entry, class List, class Path>
Entry *look_up(List &list, const zwchar *path, Path path_of) {
    if (!list.by_path) {
        Owned<Hashmap, zHashmapFree> map(zHashmapNew());
        if (!map) return nullptr;
        for (uint64_t i = 0; i < zVectorSize(&list.entries); ++i) {
            auto *entry = static_cast<Entry *const *>(zVectorDataConst(&list.entries))[i];
            if (!zHashmapInsert(map.get(), path_of(entry), entry)) return nullptr;
        }
        list.by_path = std::move(map);
    }
    auto *found = static_cast<Entry *>(zHashmapAt(list.by_path.get(), path));
    if (!found) raise_not_found(path);
    return found;
}

// ---- Each may throw.

DiffListPtr diff_list_new(uint64_t capacity);
DiffListPtr diff_list_dup(const DiffList *list);
std::unique_ptr<DiffEntry> diff_entry_dup(const DiffEntry &entry);
void diff_list_append(DiffList *list, std::unique_ptr<DiffEntry> entry);

// zDiffTreeToIndex by handles; a null index is the repository's own.
DiffList *diff_tree_to_index(git_repository *repository, git_tree *tree, git_index *index,
                             PathSpec *spec, DiffCancel cancel);

// Whether an entry's kind and new path are what a spec wants; a null spec wants everything.
bool diff_entry_passes(const DiffEntry &entry, PathSpec *spec);

// Copies of what passes, in order. A rename that the spec doesn't want as one falls into its
// added and its deleted half. Null when that is nothing and the spec asks for a match.
DiffListPtr diff_list_filtered(const DiffList *list, PathSpec *spec);
// Whether that copy would hold anything.
bool diff_list_any(const DiffList *list, PathSpec *spec);

} // namespace zev
