// The list is made by a walk of our own, since libgit2's disregards case.
#include "remote/changes.hpp"

#include "common/utf.hpp"
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

} // namespace zev
