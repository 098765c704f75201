// Goes through trees with a stack of its own, through each once. What holds: the extent of a tree
// that was left is known, unless a part of it was passed over since another tree has it in the same
// place.
#include "objects/store/tree_extent.hpp"

#include "common/limits.hpp"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

namespace zev {

namespace {

struct Extent {
    size_t height = 1;
    uint64_t entries = 0; // of all trees in it, each counted wherever it stands

    void add(const Extent &below) {
        height = std::max(height, below.height + 1);
        entries += below.entries;
    }
};

struct Level {
    std::string id;
    git::Tree tree, other; // the one in its place, if any
    Extent extent{};
    size_t next = 0;
    bool whole = true; // nothing was passed over
};

std::string raw(const git_oid *id) {
    return {reinterpret_cast<const char *>(id->id), sizeof id->id};
}

bool is_tree(const git_tree_entry *entry) {
    return entry && git_tree_entry_type(entry) == GIT_OBJECT_TREE;
}

class Descent {
  public:
    // `strict`: what isn't there is refused.
    Descent(git_repository *repository, bool strict) : repository_(repository), strict_(strict) {}

    bool run(const git_oid *root, const git_oid *other = nullptr) {
        if (!enter(root, other)) return false;
        while (!levels_.empty())
            if (!step()) return false;
        return true;
    }

  private:
    bool enter(const git_oid *id, const git_oid *other) {
        Level level{raw(id), {}, {}};
        if (levels_.size() > limits::path_depth) return raise_range();
        const int code = git_tree_lookup(out(level.tree), repository_, id);
        if (code < 0) return strict_ ? fail_git(code) : true;
        if (other) git_tree_lookup(out(level.other), repository_, other);
        level.extent.entries = git_tree_entrycount(level.tree.get());
        levels_.push_back(std::move(level));
        return true;
    }

    bool step() {
        Level &level = levels_.back();
        if (level.next == git_tree_entrycount(level.tree.get())) return leave();
        const git_tree_entry *entry = git_tree_entry_byindex(level.tree.get(), level.next++);
        if (!is_tree(entry)) return true;
        const git_oid *id = git_tree_entry_id(entry), *other = other_id(level, entry);
        if (other && git_oid_equal(id, other)) return level.whole = false, true;
        const auto known = known_.find(raw(id));
        if (known == known_.end()) return enter(id, other);
        level.extent.add(known->second);
        const bool fits = levels_.size() + known->second.height <= limits::path_depth + 1;
        return fits ? true : raise_range();
    }

    static const git_oid *other_id(const Level &level, const git_tree_entry *entry) {
        if (!level.other) return nullptr;
        const char *name = git_tree_entry_name(entry);
        const git_tree_entry *other = git_tree_entry_byname(level.other.get(), name);
        return is_tree(other) ? git_tree_entry_id(other) : nullptr;
    }

    bool leave() {
        Level level = std::move(levels_.back());
        levels_.pop_back();
        if (!levels_.empty()) {
            levels_.back().extent.add(level.extent);
            levels_.back().whole &= level.whole;
        }
        if (level.whole) known_[std::move(level.id)] = level.extent;
        return level.extent.entries <= limits::tree_entries ? true : raise_range();
    }

    git_repository *repository_;
    bool strict_;
    std::vector<Level> levels_;
    std::unordered_map<std::string, Extent> known_;
};

} // namespace

bool has_bounded_extent(git_repository *repository, const git_oid *id) {
    git::Object object, tree;
    if (git_object_lookup(out(object), repository, id, GIT_OBJECT_ANY) < 0) return true;
    if (git_object_peel(out(tree), object.get(), GIT_OBJECT_TREE) < 0) return true;
    return Descent(repository, false).run(git_object_id(tree.get()));
}

bool has_bounded_change(git_tree *before, git_tree *after) {
    if (!after) return true;
    return Descent(git_tree_owner(after), true)
        .run(git_tree_id(after), before ? git_tree_id(before) : nullptr);
}

} // namespace zev
