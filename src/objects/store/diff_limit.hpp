// What of a comparison a spec selects, told to libgit2 before it walks.
#pragma once

#include "objects/store/pathspec.hpp"
#include "objects/store/repository.hpp"

#include <string>
#include <vector>

namespace zev {

// Whether a path is tracked without being checked out: nothing on disk is its right state. libgit2
// calls it deleted.
bool is_sparse(git_index *index, const char *path);

// Tells libgit2 what a spec selects. If every pattern is the exact name of something, these names
// go to libgit2, whose walk then touches nothing else; if not, the walk takes in everything and
// each difference is asked for. libgit2's own patterns are not used, see pathspec.hpp.
class DiffLimit {
  public:
    // `options` get the limit and must not outlive it.
    DiffLimit(PathSpec *spec, git_diff_options &options);
    DiffLimit(const DiffLimit &) = delete;
    DiffLimit &operator=(const DiffLimit &) = delete;

    // For comparisons with the index: leaves out what the work directory need not hold, and uses
    // names where each names a file, as it is spelled, of the index, the disk or `head` (which may
    // be null).
    void narrow(const Repository *repository, git_index *index, git_tree *head);
    // Uses names where libgit2 will disregard case like us, for comparisons that do so.
    void narrow_caseless();

    bool narrowed() const { return !names_.empty(); }
    std::vector<const git_index_entry *> entries(git_index *index) const; // what is selected
    bool thrown() const { return thrown_; } // memory ran out while a difference was asked for

  private:
    static int selects(const git_diff *, const git_diff_delta *, const char *, void *);
    void ask();
    void use_names();

    git_diff_options &options_;
    Matcher *matcher_; // null when all is selected
    git_index *index_ = nullptr;
    std::vector<std::string> names_;
    std::vector<char *> pointers_;
    bool thrown_ = false;
};

} // namespace zev
