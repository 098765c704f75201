// Goes through trees with a stack of its own, through each once. What holds: the height of a tree
// that was left is known.
#include "objects/store/tree_depth.hpp"

#include "common/limits.hpp"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

namespace zev {

namespace {

struct Level {
    std::string id;
    git::Tree tree;
    size_t next = 0;
    size_t height = 1;
};

std::string raw(const git_oid *id) {
    return {reinterpret_cast<const char *>(id->id), sizeof id->id};
}

class Descent {
  public:
    explicit Descent(git_repository *repository) : repository_(repository) {}

    bool run(const git_oid *root) {
        if (!enter(root)) return false;
        while (!levels_.empty())
            if (!step()) return false;
        return true;
    }

  private:
    // Into a tree that wasn't seen yet; one that isn't there has no height.
    bool enter(const git_oid *id) {
        if (levels_.size() >= limits::path_depth) return false;
        git::Tree tree;
        if (git_tree_lookup(out(tree), repository_, id) >= 0)
            levels_.push_back({raw(id), std::move(tree)});
        return true;
    }

    bool step() {
        Level &level = levels_.back();
        if (level.next == git_tree_entrycount(level.tree.get())) return leave(), true;
        const git_tree_entry *entry = git_tree_entry_byindex(level.tree.get(), level.next++);
        if (git_tree_entry_type(entry) != GIT_OBJECT_TREE) return true;
        const auto known = heights_.find(raw(git_tree_entry_id(entry)));
        if (known == heights_.end()) return enter(git_tree_entry_id(entry));
        level.height = std::max(level.height, known->second + 1);
        return levels_.size() + known->second <= limits::path_depth;
    }

    void leave() {
        const size_t height = levels_.back().height;
        heights_[std::move(levels_.back().id)] = height;
        levels_.pop_back();
        if (!levels_.empty()) levels_.back().height = std::max(levels_.back().height, height + 1);
    }

    git_repository *repository_;
    std::vector<Level> levels_;
    std::unordered_map<std::string, size_t> heights_;
};

} // namespace

bool has_bounded_depth(git_repository *repository, const git_oid *id) {
    git::Object object, tree;
    if (git_object_lookup(out(object), repository, id, GIT_OBJECT_ANY) < 0) return true;
    if (git_object_peel(out(tree), object.get(), GIT_OBJECT_TREE) < 0) return true;
    return Descent(repository).run(git_object_id(tree.get()));
}

} // namespace zev
