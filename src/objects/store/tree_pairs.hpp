// Two trees in step, directory by directory. Names are compared byte by byte: libgit2 compares
// trees without regard to case, and loses one of two twins.
#pragma once

#include "objects/store/git.hpp"

#include <functional>
#include <string>

namespace zev {

class TreePairs {
  public:
    using Entry = const git_tree_entry *; // null: not on this side
    using Take = std::function<void(std::string path, Entry before, Entry after)>;

    // Takes each path that is no directory and differs, with `all` each that there is. Directories
    // with the same id are opened only then.
    TreePairs(git_repository *repository, bool all, Take take)
        : repository_(repository), all_(all), take_(std::move(take)) {}

    // Of trees that may be null. False, raised, where a tree isn't here, and for a path that is
    // longer than any that an operation takes. May throw.
    bool walk(git_tree *before, git_tree *after, const std::string &directory = {});

    // Whether it ended at a directory of `after` that can't be read.
    bool is_after_cut() const { return is_after_cut_; }

  private:
    bool meet(Entry before, Entry after, const std::string &directory);
    bool open(git::Tree &tree, Entry entry);

    git_repository *repository_;
    bool all_;
    bool is_after_cut_ = false;
    Take take_;
};

bool is_same_entry(TreePairs::Entry a, TreePairs::Entry b); // with its mode; null is like nothing

} // namespace zev
