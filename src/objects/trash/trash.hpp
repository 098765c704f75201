// Trash, for its own files and for those that take things out of the work directory.
#pragma once

#include "common/failure.hpp"
#include "objects/work/workdir.hpp"
#include "zev/pathspec.h"
#include "zev/trash.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <sys/stat.h>

struct TrashEntry {
    struct stat status;
    Repository *owner;   // lent
    std::u16string path; // below the trash root
    std::u16string name;
    std::u16string orig; // the directory that held it, below the work directory
    std::u16string type;
    Time dtime;
    Time mtime;
};

namespace zev {
using TrashEntryPtr = Owned<TrashEntry, zTrashEntryFree>;
} // namespace zev

struct TrashFind {
    Repository *owner;
    std::u16string root; // asked for once: the repository is not for two threads
    zev::TrashEntryPtr parent;
    zev::Owned<PathSpec, zPathSpecFree> spec; // the thread's while it runs
    bool recursive;

    std::mutex mutex; // for all below
    std::condition_variable changed;
    int64_t thread = -1;  // while it runs
    int64_t started = -1; // until it is joined
    bool stop = false;
    std::vector<zev::TrashEntryPtr> results;

    uint64_t position = 0; // the reader's
    bool first = true;
};

namespace zev {

inline constexpr std::u16string_view kTrashInfo = u"info.$$$";
inline constexpr size_t kTrashSlot = 2 + 1 + 38; // length of a slot's path

// ---- What is on disk

struct TrashInfo {
    std::u16string name;
    std::u16string orig;
    int64_t time;
};

// A description from its file's bytes. False for anything incomplete, and for a name that is no
// single name. Raises nothing of its own; may throw.
bool parse_trash_info(TrashInfo *out, std::string_view bytes);
std::string format_trash_info(const TrashInfo &info); // empty when it failed

struct TrashPath {
    std::u16string slot;  // <xx>/<38 digits>
    std::u16string inner; // below the slot, empty for the item itself
};

// An entry path as a caller gives it. May throw.
bool parse_trash_path(TrashPath *out, std::u16string_view path);

// The repository's trash, or class 2 for a bare one.
bool trash_root(std::u16string *out, Repository *repository);

// Entries as the search makes them; null with the reason raised. May throw.
TrashEntryPtr trash_discover(Repository *owner, const std::u16string &root,
                             std::u16string_view path);
TrashEntryPtr trash_child(const TrashEntry &parent, const std::u16string &root,
                          std::u16string_view name);

// Class 2 unless an entry names something inside a slot, not behind a link: what follows moves or
// removes what stands there.
bool check_trash_entry(const std::u16string &root, const TrashEntry &entry);

// Starts the thread of a search; an earlier run is stopped and its results go.
bool trash_find_start(TrashFind *find);

// Removes the directories above an entry that went, from the nearest up, as long as they are empty
// or, if `hollow`, hold no files; the description goes with its slot.
void prune_trash(const std::u16string &root, std::u16string_view path, bool hollow);

// ---- Into the trash

// A slot with its description, still without its item.
struct TrashSlot {
    std::u16string directory;
    std::u16string name;
};

// Takes paths of one work directory into the trash. Each description must be on the disk before
// its item moves, and a sync costs far more than the move: those of the paths that are announced
// are made ahead, some hundreds at a time, and synced together.
class TrashBatch {
  public:
    // `paths` in the order in which they will come; each may be left out in the end.
    explicit TrashBatch(Repository *repository, std::vector<std::u16string> paths = {})
        : repository_(repository), paths_(std::move(paths)) {}
    ~TrashBatch(); // slots that nothing came for go
    TrashBatch(const TrashBatch &) = delete;
    TrashBatch &operator=(const TrashBatch &) = delete;

    // As zTrashMoveInto and zWorkdirDrop, for announced paths and others. May throw.
    bool move_in(const zwchar *path);
    bool drop(const zwchar *path);

  private:
    bool take(const WorkPath &place);
    void prepare();
    bool announce(const std::u16string &path);

    Repository *repository_;
    std::vector<std::u16string> paths_;
    size_t next_ = 0; // of paths_, without a slot yet
    std::unordered_map<std::u16string, TrashSlot> ready_;
};

} // namespace zev
