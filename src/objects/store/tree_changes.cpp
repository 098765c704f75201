// Two trees in step. Entries are compared directory by directory, in the order in which a tree
// holds them; only directories with different ids are opened. What differs becomes a Change:
//
//   on one side   added or deleted; a directory gives all that lies below it
//   on both       modified
//
// The result is sorted as libgit2 sorts it, by path without regard to the case of ASCII letters.
// What libgit2 makes of everything else is not rebuilt here; it is asked instead, for the whole
// comparison: links and submodules, a name that a file has on one side and a directory on the
// other, names that differ in case only, specs that want what is unchanged, a caller who wants to
// be able to stop it.
#include "objects/store/tree_changes.hpp"

#include "common/utf.hpp"
#include "objects/store/object.hpp"
#include "objects/store/renames.hpp"
#include "zev/status.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include <sys/stat.h>

using namespace zev;

namespace {

// What a tree has under a name. The id lies in the tree.
struct Side {
    const git_oid *id = nullptr;
    uint16_t mode = 0; // 0: nothing

    explicit operator bool() const { return mode != 0; }
    bool is_tree() const { return (mode & S_IFMT) == S_IFDIR; }
    bool is_file() const { return (mode & S_IFMT) == S_IFREG; }
    bool operator==(const Side &other) const {
        return mode == other.mode && (!mode || git_oid_equal(id, other.id));
    }
};

// A file that differs, with its ids kept.
struct Change {
    std::string path, key; // the key has its letters in lower case
    git_oid old_id, new_id;
    uint16_t old_mode, new_mode; // 0: not on this side
};

struct Directory {
    std::string path; // with a slash at its end, but for the root
    git_oid old_id, new_id;
    bool in_old, in_new;
};

std::string lower(std::string_view text) {
    std::string key(text);
    for (char &c : key)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return key;
}

Side side_of(const git_tree_entry *entry) {
    return {git_tree_entry_id(entry), static_cast<uint16_t>(git_tree_entry_filemode_raw(entry))};
}

enum class Outcome { whole, strange, failed };

class TreeWalk {
  public:
    explicit TreeWalk(git_repository *repository, PathSpec *spec)
        : repository_(repository), spec_(spec) {}

    // `strange`: libgit2 has to be asked.
    Outcome run(git_tree *old_tree, git_tree *new_tree);
    std::vector<Change> &changes() { return changes_; }

  private:
    bool open(git::Tree &tree, bool there, const git_oid &id);
    bool compare(const Directory &directory, git_tree *old_tree, git_tree *new_tree);
    bool differ(const Directory &directory, const char *name, Side old_side, Side new_side);
    bool meet(const char *name, bool in_old);
    void descend(std::string path, Side old_side, Side new_side);
    bool add(std::string path, Side old_side, Side new_side);

    git_repository *repository_;
    PathSpec *spec_;
    std::vector<Directory> pending_;
    std::vector<Change> changes_;
    // Of the directory at hand: names on one side only, in lower case.
    std::unordered_set<std::string> only_old_, only_new_;
};

Outcome TreeWalk::run(git_tree *old_tree, git_tree *new_tree) {
    if (!compare({{}, {}, {}, old_tree != nullptr, new_tree != nullptr}, old_tree, new_tree))
        return Outcome::strange;
    while (!pending_.empty()) {
        const Directory directory = std::move(pending_.back());
        pending_.pop_back();
        git::Tree old_one, new_one;
        if (!open(old_one, directory.in_old, directory.old_id) ||
            !open(new_one, directory.in_new, directory.new_id))
            return Outcome::failed;
        if (!compare(directory, old_one.get(), new_one.get())) return Outcome::strange;
    }
    return Outcome::whole;
}

bool TreeWalk::open(git::Tree &tree, bool there, const git_oid &id) {
    const int code = there ? git_tree_lookup(out(tree), repository_, &id) : 0;
    return code < 0 ? fail_git(code) : true;
}

// False for what is not to be judged here.
bool TreeWalk::compare(const Directory &directory, git_tree *old_tree, git_tree *new_tree) {
    only_old_.clear();
    only_new_.clear();
    const size_t old_count = old_tree ? git_tree_entrycount(old_tree) : 0;
    const size_t new_count = new_tree ? git_tree_entrycount(new_tree) : 0;
    for (size_t i = 0, j = 0; i < old_count || j < new_count;) {
        const git_tree_entry *a = i < old_count ? git_tree_entry_byindex(old_tree, i) : nullptr;
        const git_tree_entry *b = j < new_count ? git_tree_entry_byindex(new_tree, j) : nullptr;
        const int order = !a ? 1 : !b ? -1 : git_tree_entry_cmp(a, b);
        if (order <= 0) ++i;
        if (order >= 0) ++j;
        const Side old_side = order <= 0 ? side_of(a) : Side{};
        const Side new_side = order >= 0 ? side_of(b) : Side{};
        if (old_side == new_side) continue;
        if (!differ(directory, git_tree_entry_name(order <= 0 ? a : b), old_side, new_side))
            return false;
    }
    return true;
}

bool TreeWalk::differ(const Directory &directory, const char *name, Side old_side, Side new_side) {
    const bool one_sided = !old_side || !new_side;
    const bool may_meet = directory.in_old && directory.in_new;
    if (one_sided && may_meet && !meet(name, static_cast<bool>(old_side))) return false;
    std::string path = directory.path + name;
    if (old_side.is_tree() || new_side.is_tree()) {
        descend(std::move(path), old_side, new_side);
        return true;
    }
    return add(std::move(path), old_side, new_side);
}

// False when the other side has that name too, but for its case or as another kind of thing.
bool TreeWalk::meet(const char *name, bool in_old) {
    std::string key = lower(name);
    if ((in_old ? only_new_ : only_old_).contains(key)) return false;
    (in_old ? only_old_ : only_new_).insert(std::move(key));
    return true;
}

// Trees come before or behind a file of their name, so that both sides here are trees.
void TreeWalk::descend(std::string path, Side old_side, Side new_side) {
    Directory directory{std::move(path) + "/", {}, {}, bool(old_side), bool(new_side)};
    if (old_side) directory.old_id = *old_side.id;
    if (new_side) directory.new_id = *new_side.id;
    pending_.push_back(std::move(directory));
}

bool TreeWalk::add(std::string path, Side old_side, Side new_side) {
    if ((old_side && !old_side.is_file()) || (new_side && !new_side.is_file())) return false;
    if (!spec_matches(spec_, path)) return true;
    Change change{std::move(path), {}, {}, {}, old_side.mode, new_side.mode};
    change.key = lower(change.path);
    if (old_side) change.old_id = *old_side.id;
    if (new_side) change.new_id = *new_side.id;
    changes_.push_back(std::move(change));
    return true;
}

// ---- Records of the changes

std::unique_ptr<DiffFile> make_file(const Change &change, bool old_side) {
    auto file = std::make_unique<DiffFile>();
    file->id = *git::oid(old_side ? &change.old_id : &change.new_id);
    file->flags = GIT_DIFF_FLAG_VALID_ID | GIT_DIFF_FLAG_EXISTS;
    file->mode = old_side ? change.old_mode : change.new_mode;
    file->id_abbrev = GIT_OID_HEXSZ;
    file->path.reset(wide_dup(change.path.data(), change.path.size()));
    if (!file->path) throw std::bad_alloc();
    return file;
}

int32_t kind_of(const Change &change) {
    if (!change.old_mode) return Z_KIND_ADDED;
    return change.new_mode ? Z_KIND_MODIFIED : Z_KIND_DELETED;
}

std::unique_ptr<DiffEntry> make_entry(const Change &change) {
    auto entry = std::make_unique<DiffEntry>();
    entry->status = kind_of(change);
    if (change.old_mode) entry->old_file = make_file(change, true);
    if (change.new_mode) entry->new_file = make_file(change, false);
    entry->files = entry->old_file && entry->new_file ? 2 : 1;
    return entry;
}

std::vector<size_t> find_renames(const std::vector<Change> &changes) {
    const auto end_if = [&](size_t i, int32_t kind, git_oid Change::*id) {
        const Change &change = changes[i];
        return kind_of(change) == kind ? Moved{&(change.*id), change.path.c_str()} : Moved{};
    };
    return pair_identical(
        changes.size(), [&](size_t i) { return end_if(i, Z_KIND_DELETED, &Change::old_id); },
        [&](size_t i) { return end_if(i, Z_KIND_ADDED, &Change::new_id); });
}

DiffListPtr make_list(const std::vector<Change> &changes, bool renames) {
    DiffListPtr list = diff_list_new(changes.size());
    std::vector<size_t> from(changes.size(), kNoSource);
    if (renames) from = find_renames(changes);
    for (size_t i = 0; i < changes.size(); ++i) {
        if (from[i] == i) continue; // its new place tells of it
        auto entry = make_entry(changes[i]);
        if (from[i] != kNoSource) {
            entry->status = Z_KIND_RENAMED;
            entry->similarity = 100;
            entry->files = 2;
            entry->old_file = make_file(changes[from[i]], true);
        }
        diff_list_append(list.get(), std::move(entry));
    }
    return list;
}

bool wants_unchanged(const PathSpec *spec) {
    return spec_options(spec) && !(spec_options(spec) & Z_SPEC_NO_UNCHANGED);
}

} // namespace

DiffList *zev::diff_trees(Tree *old_tree, Tree *new_tree, PathSpec *spec, DiffCancel cancel) try {
    const Tree *tree = old_tree ? old_tree : new_tree;
    if (!tree || cancel || wants_unchanged(spec))
        return zDiffTreeToTree(old_tree, new_tree, spec, cancel);
    TreeWalk walk(tree->owner->handle.get(), spec);
    const Outcome outcome = walk.run(old_tree ? old_tree->handle.get() : nullptr,
                                     new_tree ? new_tree->handle.get() : nullptr);
    if (outcome == Outcome::failed) return nullptr;
    if (outcome == Outcome::strange) return zDiffTreeToTree(old_tree, new_tree, spec, cancel);
    std::ranges::sort(walk.changes(), {}, &Change::key);
    DiffListPtr list = make_list(walk.changes(), !(spec_options(spec) & Z_SPEC_NO_RENAMED));
    if (zVectorIsEmpty(&list->entries) && spec_options(spec) & Z_SPEC_MUST_MATCH)
        return raise_not_found();
    return list.release();
} catch (...) {
    return fail_thrown();
}
