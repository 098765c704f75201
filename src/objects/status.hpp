// Comparing head, index and work directory, for status and for what stages by it.
#pragma once

#include "objects/pathspec.hpp"
#include "objects/records.hpp"
#include "zev/status.h"

#include <ctime>
#include <vector>

namespace zev {

class Filters; // objects/index.hpp

// Tells libgit2 what a spec selects. If every pattern is the exact name of something, these names
// go to libgit2, whose walk then touches nothing else; if not, the walk takes in everything and
// each difference is asked for. libgit2's own patterns are not used, see pathspec.hpp.
class DiffLimit {
  public:
    // `options` get the limit and must not outlive it.
    DiffLimit(PathSpec *spec, git_diff_options &options);
    DiffLimit(const DiffLimit &) = delete;
    DiffLimit &operator=(const DiffLimit &) = delete;

    // Uses names where each names a file, as it is spelled, of the index, the disk or `head`
    // (which may be null).
    void narrow(const Index *index, git_tree *head);
    // Uses names where libgit2 will disregard case like us, for comparisons that do so.
    void narrow_caseless();

    bool narrowed() const { return !names_.empty(); }
    std::vector<const git_index_entry *> entries(git_index *index) const; // what is selected
    bool thrown() const { return thrown_; } // memory ran out while a difference was asked for

  private:
    static int selects(const git_diff *, const git_diff_delta *, const char *, void *);
    void use_names();

    git_diff_options &options_;
    Matcher *matcher_; // null when all is selected
    std::vector<std::string> names_;
    std::vector<char *> pointers_;
    bool thrown_ = false;
};

// One path of a status, lent while the scan lives.
struct StatusItem {
    const char *path;
    const char *from; // of a rename between head and index, else null
    int32_t kind;
    uint32_t word;
    const git_oid *old_id; // between head and index; null when neither has the path
    const git_oid *new_id;
};

// A comparison of all three.
class StatusScan {
  public:
    StatusScan(Index *index, PathSpec *spec) : index_(index), spec_(spec) {}
    bool run(); // raises; may throw

    // In the order of paths, what the spec's kinds let pass. Ends with the first result that
    // isn't 0, and gives it.
    template <class F> int each(F visit) {
        for (const StatusItem &item : items_)
            if (int result = visit(item)) return result;
        return 0;
    }
    size_t size() const { return items_.size(); }

  private:
    bool find_head();
    bool compare_staged(git_diff_options &how);
    bool compare_workdir(git_diff_options &how);
    void pair(const DiffLimit &limit);
    void add(const git_diff_delta *staged, const git_diff_delta *worked);
    void add_unchanged(const std::vector<const git_index_entry *> &entries);
    void save_stat(const DiffLimit &limit);
    bool refresh_stat(const git_index_entry &entry, const timespec &locked, Filters &filters);

    Index *index_;
    PathSpec *spec_;
    git::Tree head_;
    git::Diff staged_, worked_;
    std::vector<StatusItem> items_;
};

// Reduces libgit2's status word to one kind, -1 for a word that has none.
int32_t kind_of(uint32_t word);

} // namespace zev
