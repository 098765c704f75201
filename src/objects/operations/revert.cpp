// Revert: tracked files, and their entries, as HEAD has them.
//
// What is taken from the work directory on the way goes to the trash, and that a file can be had
// back from HEAD is made sure of before. The index is changed in memory only. Killed at any point,
// the disk holds for each path what was there, or HEAD's file with the former one in the trash,
// or nothing with it in the trash; the next revert takes each of these for what it is. Other
// programs may save files all the while: what appears at a path that was free stays.
#include "objects/operations/revert.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/conflict/conflict.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/object.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/trash/trash.hpp"
#include "objects/work/gitkeep.hpp"
#include "objects/work/status.hpp"
#include "objects/work/work_writer.hpp"
#include "system/os.hpp"
#include "zev/object.h"
#include "zev/tree.h"

#include <algorithm>
#include <optional>
#include <tuple>

using namespace zev;

namespace {

constexpr std::string_view kAttributes = ".gitattributes";
constexpr uint32_t kWorkdir = GIT_STATUS_WT_NEW | GIT_STATUS_WT_MODIFIED | GIT_STATUS_WT_DELETED |
                              GIT_STATUS_WT_TYPECHANGE | GIT_STATUS_WT_RENAMED |
                              GIT_STATUS_WT_UNREADABLE;

// ---- HEAD's tree. Libgit2 keeps no large directory in memory, so those on the way to the last
// path are kept here: paths that come in order have each directory read once.

class HeadTree {
  public:
    explicit HeadTree(Repository *owner) : owner_(owner) {}

    bool find(git_index_entry *entry); // id and mode of its path's blob

  private:
    struct Directory {
        std::string path;
        git::Tree tree;
    };

    bool open();
    git_tree *directory(std::string_view path);
    git_tree *enter(git_tree *tree, std::string_view path, size_t at);

    Repository *owner_;
    Owned<Tree, zTreeFree> root_;
    std::vector<Directory> way_; // from the top
};

bool HeadTree::open() {
    if (!root_) root_.reset(zTreeHead(owner_));
    return root_ != nullptr;
}

bool HeadTree::find(git_index_entry *entry) {
    if (!open()) return false;
    const std::string_view path = entry->path;
    const size_t slash = path.rfind('/');
    git_tree *tree = directory(slash == path.npos ? "" : path.substr(0, slash));
    const char *name = entry->path + (slash == path.npos ? 0 : slash + 1);
    const git_tree_entry *found = tree ? git_tree_entry_byname(tree, name) : nullptr;
    if (!found || git_tree_entry_type(found) != GIT_OBJECT_BLOB)
        return raise_not_found(entry->path);
    entry->id = *git_tree_entry_id(found);
    entry->mode = static_cast<uint32_t>(git_tree_entry_filemode(found));
    return true;
}

// Null where HEAD has no such directory.
git_tree *HeadTree::directory(std::string_view path) {
    const auto leads_to = [&](const Directory &above) {
        return path.starts_with(above.path) &&
               (path.size() == above.path.size() || path[above.path.size()] == '/');
    };
    while (!way_.empty() && !leads_to(way_.back())) way_.pop_back();
    git_tree *tree = way_.empty() ? root_->handle.get() : way_.back().tree.get();
    size_t at = way_.empty() ? 0 : way_.back().path.size() + 1;
    for (; tree && at < path.size(); at = way_.back().path.size() + 1) tree = enter(tree, path, at);
    return tree;
}

git_tree *HeadTree::enter(git_tree *tree, std::string_view path, size_t at) {
    const size_t end = std::min(path.find('/', at), path.size());
    const std::string name(path.substr(at, end - at));
    const git_tree_entry *entry = git_tree_entry_byname(tree, name.c_str());
    git::Tree next;
    if (!entry || git_tree_entry_type(entry) != GIT_OBJECT_TREE ||
        git_tree_lookup(out(next), owner_->handle.get(), git_tree_entry_id(entry)) < 0)
        return nullptr;
    way_.push_back({std::string(path.substr(0, end)), std::move(next)});
    return way_.back().tree.get();
}

// ---- The operation

struct Item {
    std::string path;
    std::u16string wide, folded;
    int32_t kind;
    uint32_t word;

    // One that was replaced by something of another type is not what was added.
    bool is_new() const {
        return word & GIT_STATUS_INDEX_NEW &&
               !(word & (GIT_STATUS_INDEX_TYPECHANGE | GIT_STATUS_WT_TYPECHANGE));
    }
    bool is_named(std::string_view name) const {
        return std::string_view(path).substr(path.rfind('/') + 1) == name;
    }
    bool is_keep_file() const { return is_named(kKeepFile); }
    bool is_to_restore() const {
        return kind == Z_KIND_DELETED || kind == Z_KIND_MODIFIED ||
               (kind == Z_KIND_MISSING && !is_new());
    }
};

// A keep-file that was added, with its entry.
struct Keep {
    const Item *item;
    git_index_entry entry;
};

class Revert {
  public:
    // What stands in the way of a file goes to the trash if it `displaces`, else the file does not
    // come back.
    Revert(Index *index, const Notify *notify, bool displaces = true)
        : index_(index), owner_(index->owner), notify_(notify), displaces_(displaces),
          head_(index->owner) {
        writer_.emplace(index, true);
    }

    bool find(const PathSpec *spec);
    // In this order; false when the user breaks off.
    bool drop_added();
    bool settle_keep_files();
    bool resolve_conflicts();
    bool restore();

  private:
    bool is_displaced(const Item &item) const;
    void sort();
    void announce();
    bool is_stopped();
    bool take(const Item &item);
    std::vector<Keep> drop_keep_entries();
    bool is_tracked_below(std::string_view directory);
    bool put_back(const Keep &keep);
    bool can_enter(const Item &item);
    bool restore(const Item &item);
    bool check_out(const Item &item, const git_index_entry &entry);
    void told(const Item &item, bool done, const zwchar *action) {
        if (done)
            notify_action(notify_, action, item.wide.c_str());
        else
            notify_failed(notify_, u"odb.eFailedToRevertEntry_s", item.wide.c_str());
    }
    void told_deleted(const Item &item, bool done) {
        if (done)
            notify_action(notify_, u"action.sDeleted", item.wide.c_str());
        else
            notify_failed(notify_, u"odb.eFailedToRemoveEntry_s", item.wide.c_str());
    }

    Index *index_;
    Repository *owner_;
    const Notify *notify_;
    bool displaces_;
    std::vector<Item> items_;
    std::optional<TrashBatch> trash_;
    HeadTree head_;
    std::optional<WorkWriter> writer_; // made anew once the attributes are there
};

bool Revert::is_stopped() {
    if (!zNotifyIsUsrbrk(notify_)) return false;
    raise_canceled();
    return true;
}

// ---- What there is to revert

bool Revert::find(const PathSpec *spec) {
    Owned<PathSpec, zPathSpecFree> wanted(zPathSpecDup(spec));
    if (!wanted || !zPathSpecSetOff(wanted.get(), Z_SPEC_MUST_MATCH) ||
        !zPathSpecSetOn(wanted.get(), Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_UNTRACKED |
                                          Z_SPEC_NO_RENAMED | Z_SPEC_NO_COPIED |
                                          Z_SPEC_NO_TYPECHANGE))
        return false;
    StatusScan scan(index_, wanted.get());
    if (!scan.run()) return false;
    items_.reserve(scan.size());
    scan.each([&](const StatusItem &item) {
        items_.push_back({item.path, to_wide(item.path), {}, item.kind, item.word});
        return 0;
    });
    if (!displaces_) std::erase_if(items_, [&](const Item &item) { return is_displaced(item); });
    return sort(), announce(), true;
}

// Whether something else than the file stands there, or above it.
bool Revert::is_displaced(const Item &item) const {
    WorkPath place;
    return !work_path_to_take(&place, owner_, item.wide.c_str()) ||
           !find_obstacle(owner_, place).empty();
}

// Added ones first, then conflicts; from the last path to the first, so that what is below a
// directory comes before it.
void Revert::sort() {
    const auto rank = [](const Item &item) {
        return item.kind == Z_KIND_ADDED ? -2 : item.kind == Z_KIND_CONFLICTED ? -1 : item.kind;
    };
    for (Item &item : items_) fold_path(item.folded, item.path);
    std::ranges::sort(items_, [&](const Item &a, const Item &b) {
        return std::tuple(rank(a), std::u16string_view(b.folded), std::string_view(b.path)) <
               std::tuple(rank(b), std::u16string_view(a.folded), std::string_view(a.path));
    });
}

// What the trash may be given, in the order of the steps. One alone is as well synced by itself.
void Revert::announce() {
    std::vector<std::u16string> paths;
    const auto add = [&](auto wanted) {
        for (const Item &item : items_)
            if (wanted(item)) paths.push_back(item.wide);
    };
    add([](const Item &item) { return item.is_new() && !item.is_keep_file(); });
    add([](const Item &item) { return item.is_new() && item.is_keep_file(); });
    add([](const Item &item) { return item.is_to_restore() && item.kind != Z_KIND_MISSING; });
    if (paths.size() == 1) paths.clear();
    trash_.emplace(owner_, std::move(paths));
}

// ---- Added files

bool Revert::drop_added() {
    for (const Item &item : items_) {
        if (!item.is_new() || item.is_keep_file()) continue;
        if (is_stopped()) return false;
        told_deleted(item, take(item) && index_drop(index_, item.path.c_str()));
    }
    return true;
}

// Out of the work directory. Where the file is gone, and where a directory stands, which holds
// other things than were added, there is nothing to take.
bool Revert::take(const Item &item) {
    struct stat status;
    if (!check_path(item.path)) return false;
    if (item.word & GIT_STATUS_WT_DELETED) return true;
    const bool is_dir =
        os::lstat(full_path(owner_, item.path).c_str(), &status) && S_ISDIR(status.st_mode);
    return is_dir || trash_->drop(item.wide.c_str());
}

// ---- Added keep-files: one goes unless something else below its directory is tracked

bool Revert::settle_keep_files() {
    for (const Keep &keep : drop_keep_entries()) {
        const Item &item = *keep.item;
        const std::string_view path = item.path;
        if (is_tracked_below(path.substr(0, path.size() - kKeepFile.size()))) {
            if (!put_back(keep)) told(item, false, nullptr);
            continue;
        }
        const bool taken = take(item);
        told_deleted(item, taken);
        if (!taken) index_enter(index_, keep.entry);
    }
    return true;
}

// All of them before any is decided on: none keeps the directory of another one.
std::vector<Keep> Revert::drop_keep_entries() {
    std::vector<Keep> keeps;
    for (const Item &item : items_) {
        if (!item.is_new() || !item.is_keep_file()) continue;
        const auto *entry = git_index_get_bypath(index_->handle.get(), item.path.c_str(), 0);
        if (!entry) continue;
        keeps.push_back({&item, *entry});
        keeps.back().entry.path = item.path.c_str();
        index_drop(index_, item.path.c_str());
    }
    return keeps;
}

// `directory` is empty or ends in a slash. Of a conflict, ours counts.
bool Revert::is_tracked_below(std::string_view directory) {
    git_index *handle = index_->handle.get();
    size_t at = 0;
    if (git_index_find_prefix(&at, handle, std::string(directory).c_str()) < 0)
        return git_error_clear(), false;
    while (const git_index_entry *entry = git_index_get_byindex(handle, at++)) {
        if (!std::string_view(entry->path).starts_with(directory)) break;
        if (git_index_entry_stage(entry) % 2 == 0) return true;
    }
    return false;
}

// From its blob, if the file is not as it was added. A link comes back as a file: it was to be one.
bool Revert::put_back(const Keep &keep) {
    if (!index_enter(index_, keep.entry)) return false;
    if (!(keep.item->word & kWorkdir)) return true;
    git_index_entry entry = keep.entry;
    if (S_ISLNK(entry.mode)) entry.mode = GIT_FILEMODE_BLOB;
    return check_out(*keep.item, entry);
}

// ---- Conflicts: theirs is taken

// From the top, as an analysis of the whole would come to them: a conflict below another's path
// belongs to that one. Carried out in the order of the other steps.
bool Revert::resolve_conflicts() {
    const auto is_conflict = [](const Item &item) { return item.kind == Z_KIND_CONFLICTED; };
    if (std::ranges::none_of(items_, is_conflict)) return true;
    if (is_stopped()) return false;
    AnalysisPtr analysis(zConflictAnalysisNew(index_));
    std::unordered_map<std::string_view, const Item *> waiting;
    for (auto item = items_.rbegin(); item != items_.rend(); ++item) {
        if (!is_conflict(*item)) continue;
        ConflictPtr conflict(analysis ? zConflictGet(index_, item->wide.c_str()) : nullptr);
        if (conflict && zConflictAnalysisInsert(analysis.get(), conflict.get()))
            waiting.emplace(item->path, &*item);
        else
            told(*item, false, nullptr);
    }
    if (waiting.empty()) return true;
    std::vector<ConflictNode *> nodes;
    for (auto node = analysis->nodes.rbegin(); node != analysis->nodes.rend(); ++node)
        nodes.push_back(node->get());
    resolve_nodes(index_, nodes, [&](ConflictNode &node, bool done) {
        for (const ConflictSides *sides : {&node.theirs, &node.ours})
            for (const ConflictSide &side : sides->list)
                if (auto found = waiting.extract(side.path()))
                    told(*found.mapped(), done, u"action.sReverted");
    });
    return true;
}

// ---- Files that HEAD has

// Attributes first: they say how the others are to be written.
bool Revert::restore() {
    for (const bool attributes : {true, false}) {
        for (const Item &item : items_) {
            if (!item.is_to_restore() || item.is_named(kAttributes) != attributes) continue;
            if (is_stopped()) return false;
            const bool changed = item.kind == Z_KIND_MODIFIED;
            told(item, restore(item), changed ? u"action.sReverted" : u"action.sRestored");
        }
        writer_.emplace(index_, true);
    }
    return true;
}

bool Revert::restore(const Item &item) {
    git_index_entry entry{};
    entry.path = item.path.c_str();
    return check_path(item.path) && head_.find(&entry) && can_enter(item) && check_out(item, entry);
}

// The name may be held by now, in another case, by a file that is not reverted.
bool Revert::can_enter(const Item &item) {
    if (git_index_get_bypath(index_->handle.get(), item.path.c_str(), 0)) return true;
    if (!index_has_twin(index_, item.path)) return true;
    return raise_exists(item.path);
}

// The blob is in the store before anything makes way for it.
bool Revert::check_out(const Item &item, const git_index_entry &entry) {
    WorkPath place;
    if (!writer_->has(entry.id) || !work_path_to_take(&place, owner_, item.wide.c_str()))
        return false;
    const std::u16string obstacle = find_obstacle(owner_, place);
    if (!obstacle.empty() && !displaces_) return raise_exists(obstacle);
    if (!obstacle.empty() && !trash_->move_in(obstacle.c_str())) return false;
    if (!obstacle.empty() && obstacle != place.relative) writer_->forget_directories();
    return writer_->place(entry, false);
}

// False only when the user breaks off.
bool run(Revert &revert) {
    return revert.drop_added() && revert.settle_keep_files() && revert.resolve_conflicts() &&
           revert.restore();
}

} // namespace

namespace zev {

bool revert_missing(Index *index, const std::vector<std::u16string> &paths) {
    constexpr uint32_t kAllKinds = uint32_t{Z_SPEC_NO_MISSING} * 2 - Z_SPEC_NO_UNCHANGED;
    constexpr uint32_t kMissing = Z_SPEC_LITERAL | (kAllKinds & ~uint32_t{Z_SPEC_NO_MISSING});
    const Owned<PathSpec, zPathSpecFree> spec(zPathSpecNew(nullptr, kMissing));
    for (const std::u16string &path : paths)
        if (!spec || !zPathSpecAdd(spec.get(), path.c_str())) return false;
    Revert revert(index, nullptr, false);
    return revert.find(spec.get()) && run(revert);
}

} // namespace zev

// True also when the user broke off: the caller writes what was done, as the disk has it.
bool zIndexRevert(Index *index, PathSpec *spec) try {
    if (!index || !spec) return fail_args();
    const Notify *notify = spec->notify;
    notify_start(notify, u"action.sRevert");
    try {
        Revert revert(index, notify);
        if (!revert.find(spec)) return notify_done(notify), false;
        const bool done = run(revert);
        const KeptFailure kept; // of a break
        zIndexFixupFilemode(index, spec);
        if (!done) return notify_cancel(notify), true;
    } catch (...) {
        return fail_thrown(), notify_abort(notify), false;
    }
    return notify_done(notify), true;
} catch (...) {
    return fail_thrown();
}
