// Comparing head, index and work directory, for status and for what stages by it.
#pragma once

#include "objects/store/diff_limit.hpp"
#include "objects/work/index.hpp"
#include "zev/hashmap.h"
#include "zev/status.h"
#include "zev/vector.h"

#include <ctime>
#include <vector>

struct StatusEntry {
    zev::Wide from; // old path of a rename between head and index
    zev::Wide path;
    int32_t kind;
    uint32_t word; // libgit2's status flags as they came
    Oid old_id;    // of the head-to-index change
    Oid new_id;
};

// As DiffList: one function frees both.
struct StatusList {
    Vector entries;
    zev::Owned<Hashmap, zHashmapFree> by_path;
};

namespace zev {

// One path of a status. The paths live as long as the scan, whatever becomes of the index; the ids
// no longer than the index stays as it is.
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
    // A change between head and index.
    struct Staged {
        const git_diff_delta *delta;
        const git_diff_file *from; // of a rename, else null
        uint32_t word;
    };

    bool find_head();
    bool compare_staged(git_diff_options &how);
    bool find_renames(const git_diff_options &how);
    bool compare_rest(const std::vector<size_t> &sources, git_diff_options how);
    bool compare_workdir(git_diff_options &how);
    void collect_staged(const git_diff *diff, const std::vector<size_t> &sources);
    bool is_touched_drawing(const git_diff_delta *delta, std::optional<Filters> &filters);
    void pair(const DiffLimit &limit);
    void add(const Staged *staged, const git_diff_delta *worked);
    void add_unchanged(const std::vector<const git_index_entry *> &entries);
    void save_stat(const DiffLimit &limit);
    bool refresh_stat(const git_index_entry &entry, const timespec &locked, Filters &filters);

    Index *index_;
    PathSpec *spec_;
    git::Tree head_;
    git::Diff staged_, worked_;
    git::Diff rest_;              // staged_ again, without the files that moved as they were
    std::vector<Staged> changes_; // in the order of paths; deltas of both
    std::vector<char> names_;     // paths that only the index has
    std::vector<StatusItem> items_;
};

// Reduces libgit2's status word to one kind, -1 for a word that has none.
int32_t kind_of(uint32_t word);

} // namespace zev
