// Two trees in step, directory by directory; those with the same id are not
// opened.
#include "remote/changes.hpp"

#include "common/utf.hpp"
#include "zev/path.h"
#include "zev/status.h"

#include <cerrno>
#include <string>

namespace zev {

namespace {

// As long as no path that any operation takes; a tree that was made to be
// deeper costs no stack.
constexpr size_t kLongestDirectory = 3 * Z_PATH_MAX;

using Entry = const git_tree_entry *;

class Changes {
  public:
    explicit Changes(git_repository *repository)
        : repository_(repository), list_(diff_list_new(0)) {}

    bool walk(git_tree *old_tree, git_tree *new_tree, const std::string &directory = {});
    DiffListPtr take() { return std::move(list_); }

  private:
    static bool is_tree(Entry entry) {
        return entry && git_tree_entry_type(entry) == GIT_OBJECT_TREE;
    }
    bool meet(Entry before, Entry after, const std::string &directory);
    bool open(git::Tree &tree, Entry entry);
    void add(const std::string &path, Entry before, Entry after);

    git_repository *repository_;
    DiffListPtr list_;
};

bool equal(Entry a, Entry b) {
    return a && b && git_oid_equal(git_tree_entry_id(a), git_tree_entry_id(b)) &&
           git_tree_entry_filemode(a) == git_tree_entry_filemode(b);
}

std::unique_ptr<DiffFile> file_of(const std::string &path, Entry entry) {
    if (!entry) return nullptr;
    auto file = std::make_unique<DiffFile>();
    file->id = *git::oid(git_tree_entry_id(entry));
    file->path.reset(wide_dup(path.data(), path.size()));
    if (!file->path) throw std::bad_alloc();
    file->mode = static_cast<uint16_t>(git_tree_entry_filemode(entry));
    file->id_abbrev = GIT_OID_HEXSZ;
    return file;
}

bool Changes::walk(git_tree *old_tree, git_tree *new_tree, const std::string &directory) {
    const size_t old_count = old_tree ? git_tree_entrycount(old_tree) : 0;
    const size_t new_count = new_tree ? git_tree_entrycount(new_tree) : 0;
    for (size_t i = 0, j = 0; i < old_count || j < new_count;) {
        Entry before = i < old_count ? git_tree_entry_byindex(old_tree, i) : nullptr;
        Entry after = j < new_count ? git_tree_entry_byindex(new_tree, j) : nullptr;
        const int order = !before ? 1 : !after ? -1 : git_tree_entry_cmp(before, after);
        if (order > 0) before = nullptr;
        if (order < 0) after = nullptr;
        i += before != nullptr;
        j += after != nullptr;
        if (!meet(before, after, directory)) return false;
    }
    return true;
}

// Of one name; a directory never meets a file of its name, trees sort them
// apart.
bool Changes::meet(Entry before, Entry after, const std::string &directory) {
    if (equal(before, after)) return true;
    const std::string path = directory + git_tree_entry_name(before ? before : after);
    if (!is_tree(before) && !is_tree(after)) return add(path, before, after), true;
    if (path.size() > kLongestDirectory) return fail_os(ENAMETOOLONG);
    git::Tree old_tree, new_tree;
    return open(old_tree, before) && open(new_tree, after) &&
           walk(old_tree.get(), new_tree.get(), path + "/");
}

bool Changes::open(git::Tree &tree, Entry entry) {
    const int code = entry ? git_tree_lookup(out(tree), repository_, git_tree_entry_id(entry)) : 0;
    return code < 0 ? fail_git(code) : true;
}

void Changes::add(const std::string &path, Entry before, Entry after) {
    auto entry = std::make_unique<DiffEntry>();
    entry->status = !before ? Z_KIND_ADDED : !after ? Z_KIND_DELETED : Z_KIND_MODIFIED;
    entry->files = static_cast<uint16_t>((before != nullptr) + (after != nullptr));
    entry->old_file = file_of(path, before);
    entry->new_file = file_of(path, after);
    diff_list_append(list_.get(), std::move(entry));
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
    Changes changes(commit->owner->handle.get());
    if (!changes.walk(before ? before->handle.get() : nullptr, tree->handle.get())) return nullptr;
    DiffListPtr list = changes.take();
    if (!zDiffListLength(list.get())) raise_not_found(), list.reset();
    return list;
}

} // namespace zev
