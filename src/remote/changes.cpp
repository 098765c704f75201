// The list is made by a walk of our own, since libgit2's disregards case.
#include "remote/changes.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/history/revision.hpp"
#include "objects/store/tree_pairs.hpp"
#include "zev/status.h"

namespace zev {

namespace {

std::unique_ptr<DiffFile> file_of(const std::string &path, TreePairs::Entry entry) {
    if (!entry) return nullptr;
    auto file = std::make_unique<DiffFile>();
    file->id = *git::oid(git_tree_entry_id(entry));
    file->path.reset(wide_dup(path.data(), path.size()));
    if (!file->path) throw std::bad_alloc();
    file->mode = static_cast<uint16_t>(git_tree_entry_filemode(entry));
    file->id_abbrev = GIT_OID_HEXSZ;
    return file;
}

std::unique_ptr<DiffEntry> entry_of(const std::string &path, TreePairs::Entry before,
                                    TreePairs::Entry after) {
    auto entry = std::make_unique<DiffEntry>();
    entry->status = !before ? Z_KIND_ADDED : !after ? Z_KIND_DELETED : Z_KIND_MODIFIED;
    entry->files = static_cast<uint16_t>((before != nullptr) + (after != nullptr));
    entry->old_file = file_of(path, before);
    entry->new_file = file_of(path, after);
    return entry;
}

bool can_enter(const DiffFile *file) { return !file || path_can_enter(to_utf8(file->path.get())); }

bool is_sound(const DiffList *list) {
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        const DiffEntry *entry = zDiffListEntry(list, i);
        const bool has_side = entry->old_file || entry->new_file;
        if (!has_side || !can_enter(entry->old_file.get()) || !can_enter(entry->new_file.get()))
            return false;
    }
    return true;
}

} // namespace

DiffListPtr changes_of_commit(Commit *commit) {
    const TreePtr tree(zCommitTree(commit));
    CommitPtr parent;
    TreePtr before;
    if (tree && zCommitParentCount(commit)) {
        parent.reset(zCommitParent(commit));
        before.reset(parent ? zCommitTree(parent.get()) : nullptr);
        if (!before) return nullptr;
    }
    if (!tree) return nullptr;
    DiffListPtr list = diff_list_new(0);
    const auto take = [&](const std::string &path, auto old_side, auto new_side) {
        diff_list_append(list.get(), entry_of(path, old_side, new_side));
    };
    if (!TreePairs(commit->owner->handle.get(), false, take)
             .walk(before ? before->handle.get() : nullptr, tree->handle.get()))
        return nullptr;
    if (!zDiffListLength(list.get())) raise_not_found(), list.reset();
    return list;
}

DiffListPtr changes_from_json(const Json *array) {
    DiffListPtr list = diff_list_from_json(array);
    return list && is_sound(list.get()) ? std::move(list) : nullptr;
}

} // namespace zev
