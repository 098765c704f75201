// Carrying out what the user decided. A node is done in an order that loses nothing: first it is
// made sure that the index still is as the user saw it and that it can be done, then files are
// displaced, and last others are checked out and its entries change, all of them or, if one can't,
// none. So a node that fails is still in conflict, and what was displaced lies in the trash unless
// the user wanted it gone.
#include "objects/conflict/conflict.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/trash/trash.hpp"
#include "objects/work/gitkeep.hpp"
#include "objects/work/work_writer.hpp"
#include "system/os.hpp"
#include "zev/status.h"
#include "zev/workdir.h"

#include <optional>

using namespace zev;

namespace {

bool is_open(const ConflictNode &node) {
    return !node.resolved && node.solution != Z_CONFLICT_UNDECIDED;
}

// A file that only the disk has is a side without an id, or with no entry yet in the index.
bool is_same(const git_index_entry *now, const EntryPtr &then) {
    const git_index_entry *seen = git_entry(then.get());
    if (!now || !seen) return !now && (!seen || git_oid_is_zero(&seen->id));
    return git_oid_equal(&now->id, &seen->id) && now->mode == seen->mode;
}

// ---- Entries of a node's paths, put back unless the change came to its end

class Rollback {
  public:
    Rollback(Index *index, const ConflictNode &node) : index_(index) {
        for (const ConflictSides *sides : {&node.ours, &node.theirs})
            for (const ConflictSide &side : sides->list) save(side.path());
    }
    Rollback(const Rollback &) = delete;
    Rollback &operator=(const Rollback &) = delete;
    ~Rollback() {
        if (armed_) restore();
    }
    bool commit() {
        armed_ = false;
        return true;
    }

  private:
    void save(const char *path) {
        paths_.emplace_back(path);
        for (int stage = 0; stage < 4; ++stage) {
            const auto *entry = git_index_get_bypath(index_->handle.get(), path, stage);
            if (entry) entries_.push_back(copy(entry));
        }
    }
    static EntryPtr copy(const git_index_entry *entry) {
        EntryPtr made(zIndexEntryNew(zev_entry(entry)));
        if (!made) throw std::bad_alloc();
        return made;
    }
    // In memory only, and with what was there before: there is no reason to fail, and nobody to
    // tell, since the record holds the reason of the failure that led here.
    void restore() {
        git_index *handle = index_->handle.get();
        for (const std::string &path : paths_) git_index_remove_bypath(handle, path.c_str());
        for (const EntryPtr &entry : entries_) git_index_add(handle, git_entry(entry.get()));
        index_->names.reset();
    }

    Index *index_;
    std::vector<std::string> paths_;
    std::vector<EntryPtr> entries_;
    bool armed_ = true;
};

// ---- One node after the other

class Resolution {
  public:
    // `nodes` in the order in which they will come. May throw.
    Resolution(Index *index, const std::vector<ConflictNode *> &nodes)
        : index_(index), owner_(index->owner), trash_(index->owner, displaced_by(nodes)),
          writer_(index, true) {}

    bool node(ConflictNode &node); // may throw
    // Keep-files for the directories of what was resolved; one that fails is no failure of its
    // node. Comes last, since a node may take away what another had needed.
    void keep_directories();

  private:
    static std::vector<std::u16string> displaced_by(const std::vector<ConflictNode *> &nodes);
    const git_index_entry *entry(const char *path, int stage) const {
        return git_index_get_bypath(index_->handle.get(), path, stage);
    }
    bool is_current(const ConflictNode &node) const;
    bool is_current(const ConflictNode &node, const ConflictSide &theirs) const;
    bool is_way_known(const ConflictNode &node, const std::string &path) const;
    bool use_theirs(const ConflictNode &node);
    bool use_ours(const ConflictNode &node);
    bool can_check_out(const ConflictNode &node, const ConflictSide &side);
    bool is_free(const ConflictNode &node, const char *path);
    bool displace(const ConflictNode &node, const char *path);
    bool check_out(const ConflictNode &node, const ConflictSide &side);
    bool keep_ours(const ConflictNode &node, const ConflictSide &side);
    bool stage_file(const ConflictSide &side);
    bool track_again(const ConflictSide &side);
    bool is_kept(std::string_view directory);
    void remember_directory(std::string_view path);

    Index *index_;
    Repository *owner_;
    TrashBatch trash_;
    WorkWriter writer_;
    std::optional<Stager> stager_;                             // costs more than a small node
    std::unordered_map<std::string, std::string> directories_; // with a path in each
};

// What the trash is going to take; one path alone is as well taken by itself.
std::vector<std::u16string> Resolution::displaced_by(const std::vector<ConflictNode *> &nodes) {
    std::vector<std::u16string> paths;
    for (const ConflictNode *node : nodes) {
        if (!is_open(*node) || node->solution != Z_CONFLICT_USE_THEIRS) continue;
        if (node->options & Z_CONFLICT_NO_TRASH) continue;
        for (const ConflictSide &side : node->ours.list) paths.push_back(to_wide(side.path()));
    }
    if (paths.size() == 1) paths.clear();
    return paths;
}

bool Resolution::node(ConflictNode &node) {
    if (!is_open(node)) return true;
    if (!is_current(node)) return raise_not_found(node.path);
    const bool theirs = node.solution == Z_CONFLICT_USE_THEIRS;
    return node.resolved = theirs ? use_theirs(node) : use_ours(node);
}

bool Resolution::use_theirs(const ConflictNode &node) {
    const auto stays = [](const ConflictSide &side) { return side.status != Z_KIND_DELETED; };
    for (const ConflictSide &side : node.theirs.list)
        if (stays(side) && (!is_way_known(node, side.path()) || !can_check_out(node, side)))
            return false;
    for (const ConflictSide &side : node.ours.list)
        if (!displace(node, side.path())) return false;

    Rollback rollback(index_, node);
    for (const ConflictSide &side : node.ours.list)
        if (!index_drop(index_, side.path())) return false;
    for (const ConflictSide &side : node.theirs.list)
        if (stays(side) ? !check_out(node, side) : !index_drop(index_, side.path())) return false;
    return rollback.commit();
}

bool Resolution::use_ours(const ConflictNode &node) {
    const auto is_missing = [](const ConflictSide &side) { return side.status == Z_KIND_MISSING; };
    for (const ConflictSide &side : node.ours.list)
        if (is_missing(side) && !can_check_out(node, side)) return false;

    Rollback rollback(index_, node);
    for (const ConflictSide &side : node.theirs.list)
        if (!index_drop(index_, side.path())) return false;
    for (const ConflictSide &side : node.ours.list)
        if (!keep_ours(node, side)) return false;
    return rollback.commit();
}

// ---- Whether the index still holds what the user decided on. The lock may have been let go since:
// who resolved the conflict meanwhile, and worked on, must not be undone.

bool Resolution::is_current(const ConflictNode &node) const {
    for (const ConflictSide &side : node.theirs.list)
        if (!is_current(node, side)) return false;
    for (const ConflictSide &side : node.ours.list) {
        if (node.theirs.find(side.path())) continue;
        const git_index_entry *now = entry(side.path(), 0);
        if (!is_same(now ? now : entry(side.path(), 2), side.entry)) return false;
    }
    return true;
}

bool Resolution::is_current(const ConflictNode &node, const ConflictSide &theirs) const {
    static const EntryPtr none;
    const char *path = theirs.path();
    const ConflictSide *ours = node.ours.find(path);
    return !entry(path, 0) && is_same(entry(path, 1), theirs.ancestor) &&
           is_same(entry(path, 2), ours ? ours->entry : none) &&
           is_same(entry(path, 3), theirs.entry);
}

// What is tracked above or below the path goes for theirs, so it has to be one of the sides.
bool Resolution::is_way_known(const ConflictNode &node, const std::string &path) const {
    const auto is_side = [&](const std::string &tracked) {
        return node.ours.find(tracked.c_str()) || raise_exists(tracked);
    };
    for (size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
        const std::string above = path.substr(0, slash);
        if (entry(above.c_str(), 0) && !is_side(above)) return false;
    }
    git_index *handle = index_->handle.get();
    const std::string below = path + "/";
    size_t at = 0;
    if (git_index_find_prefix(&at, handle, below.c_str()) < 0) return git_error_clear(), true;
    while (const git_index_entry *tracked = git_index_get_byindex(handle, at++)) {
        if (!std::string_view(tracked->path).starts_with(below)) break;
        if (git_index_entry_stage(tracked) % 2 == 0 && !is_side(tracked->path)) return false;
    }
    return true;
}

// ---- What can fail is asked before anything is displaced

// A partial client may lack the blob, and a repository within the repository has none.
bool Resolution::can_check_out(const ConflictNode &node, const ConflictSide &side) {
    if (!side.entry) return raise_not_found(side.path());
    return check_path(side.path()) && writer_.has(git_entry(side.entry.get())->id) &&
           is_free(node, side.path());
}

// No name may differ in case only from a tracked one, unless that is about to go with the node.
bool Resolution::is_free(const ConflictNode &node, const char *path) {
    if (!index_has_twin(index_, path)) return true;
    std::u16string wanted, other;
    fold_path(wanted, path);
    for (size_t i = 0; i < git_index_entrycount(index_->handle.get()); ++i) {
        const char *name = git_index_get_byindex(index_->handle.get(), i)->path;
        fold_path(other, name);
        if (other != wanted || std::string_view(name) == path || node.ours.find(name)) continue;
        return raise_exists(path);
    }
    return true;
}

// ---- The work directory

bool Resolution::displace(const ConflictNode &node, const char *path) {
    const std::u16string wide = to_wide(path);
    return node.options & Z_CONFLICT_NO_TRASH ? zWorkdirRemove(owner_, wide.c_str())
                                              : trash_.drop(wide.c_str());
}

bool Resolution::check_out(const ConflictNode &node, const ConflictSide &side) {
    const std::u16string path = to_wide(side.path());
    if (!zWorkdirRemoveObstacle(owner_, path.c_str(), !(node.options & Z_CONFLICT_NO_TRASH)))
        return false;
    writer_.forget_directories();
    git_index_entry entry = *git_entry(side.entry.get());
    entry.flags = static_cast<uint16_t>(entry.flags & ~GIT_INDEX_ENTRY_STAGEMASK);
    if (!writer_.place(entry, false)) return false; // what appears meanwhile stays
    return remember_directory(side.path()), true;
}

// ---- The index

bool Resolution::keep_ours(const ConflictNode &node, const ConflictSide &side) {
    switch (side.status) {
    case Z_KIND_DELETED:
        return index_drop(index_, side.path());
    case Z_KIND_ADDED:
    case Z_KIND_MODIFIED:
        return stage_file(side);
    case Z_KIND_MISSING:
        return check_out(node, side);
    case Z_KIND_UNCHANGED:
        return track_again(side);
    default:
        return true;
    }
}

// The file as it is now, with the mode that ours had. It may have gone, or been put behind a
// link, since the conflict was shown.
bool Resolution::stage_file(const ConflictSide &side) {
    const git_index_entry &ours = *git_entry(side.entry.get());
    if (!entry_on_disk(index_, ours)) return raise_not_found(ours.path);
    if (!stager_) stager_.emplace(index_);
    if (!stage_named(index_, *stager_, ours.path)) return false;
    const auto *staged = git_index_get_bypath(index_->handle.get(), ours.path, 0);
    if (staged && staged->mode != ours.mode && S_ISREG(staged->mode) && S_ISREG(ours.mode)) {
        git_index_entry entry = *staged;
        entry.mode = ours.mode;
        entry.path = ours.path;
        if (!index_enter(index_, entry)) return false;
    }
    return remember_directory(ours.path), true;
}

// What only theirs changed: to drop theirs took the whole conflict out of the index.
bool Resolution::track_again(const ConflictSide &side) {
    git_index_entry entry = *git_entry(side.entry.get());
    if (git_index_get_bypath(index_->handle.get(), entry.path, 0)) return true;
    entry.flags = static_cast<uint16_t>(entry.flags & ~GIT_INDEX_ENTRY_STAGEMASK);
    return index_enter(index_, entry);
}

// ---- Keep-files

void Resolution::remember_directory(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash != path.npos) directories_.try_emplace(std::string(path.substr(0, slash)), path);
}

bool Resolution::is_kept(std::string_view directory) {
    const std::string name = std::string(directory).append("/").append(kKeepFile);
    struct stat status;
    return git_index_get_bypath(index_->handle.get(), name.c_str(), 0) &&
           os::lstat(full_path(owner_, name).c_str(), &status) && S_ISREG(status.st_mode);
}

void Resolution::keep_directories() {
    for (const auto &[directory, path] : directories_) {
        bool kept = true;
        for (size_t end = directory.size(); kept && end != directory.npos && end > 0;
             end = directory.rfind('/', end - 1))
            kept = is_kept(std::string_view(directory).substr(0, end));
        if (!kept) zIndexFixupGitkeep(index_, to_wide(path).c_str());
    }
    directories_.clear();
}

// ---- All nodes of an analysis, with reports

class ResolutionReport {
  public:
    ResolutionReport(const Notify *notify, size_t total)
        : notify_(notify), total_(static_cast<int32_t>(total)) {}

    void node(const ConflictNode &node, bool done) {
        const zwchar *path = node.path.c_str();
        ++(done ? done_ : failed_);
        if (done)
            notify_action(notify_, u"action.sResolved", path);
        else
            notify_failed(notify_, u"conflict.eUnableToResolve_s", path);
        progress();
    }
    void progress() const {
        zNotifyProgress(notify_, word(u"action.sResolveProgress_4d"), done_ + failed_, total_,
                        done_, failed_);
    }

  private:
    const Notify *notify_;
    int32_t total_, done_ = 0, failed_ = 0;
};

std::vector<ConflictNode *> open_nodes(const ConflictAnalysis &analysis) {
    std::vector<ConflictNode *> nodes;
    for (const auto &node : analysis.nodes)
        if (is_open(*node)) nodes.push_back(node.get());
    return nodes;
}

// One node's failure, whatever it is, is no other's.
bool resolve_one(Resolution &resolution, ConflictNode &node) try {
    return resolution.node(node);
} catch (...) {
    return fail_thrown();
}

} // namespace

namespace zev {

void resolve_nodes(Index *index, const std::vector<ConflictNode *> &nodes,
                   const std::function<void(ConflictNode &node, bool done)> &told) {
    Resolution resolution(index, nodes);
    for (ConflictNode *node : nodes) told(*node, resolve_one(resolution, *node));
    resolution.keep_directories();
}

} // namespace zev

bool zConflictNodeResolve(Index *index, ConflictNode *node) try {
    if (!index || !node) return fail_args();
    Resolution resolution(index, {node});
    if (!resolution.node(*node)) return false;
    return resolution.keep_directories(), true;
} catch (...) {
    return fail_thrown();
}

// What was done goes with the index that couldn't be saved: the next try meets all of it again.
static void take_back(Index *index, const std::vector<ConflictNode *> &nodes) {
    const KeptFailure kept;
    for (ConflictNode *node : nodes) node->resolved = false;
    zIndexRead(index, true);
}

bool zConflictResolve(Index *index, ConflictAnalysis *analysis) try {
    if (!index || !analysis) return fail_args();
    analysis->index = index;
    const Notify *notify = analysis->notify;
    const auto nodes = open_nodes(*analysis);
    ResolutionReport report(notify, nodes.size());
    notify_start(notify, u"action.sResolveConflicts");
    try {
        resolve_nodes(index, nodes, [&](auto &node, bool done) { report.node(node, done); });
        zIndexFixupFilemode(index, nullptr);
    } catch (...) {
        return fail_thrown(), take_back(index, nodes), notify_abort(notify), false;
    }
    if (!zIndexWrite(index)) {
        take_back(index, nodes);
        notify_error(notify, u"odb.eFailedToSaveIndex");
        return notify_abort(notify), false;
    }
    report.progress();
    return notify_done(notify), true;
} catch (...) {
    return fail_thrown();
}

bool zIndexResolve(Index *index, PathSpec *spec) {
    if (!index) return fail_args();
    const Notify *notify = spec ? spec->notify : nullptr;
    AnalysisPtr analysis(zConflictAnalyze(index, spec));
    if (!analysis) {
        if (spec_options(spec) & Z_SPEC_MUST_MATCH) notify_raised(notify);
        return false;
    }
    for (const auto &node : analysis->nodes) node->solution = Z_CONFLICT_USE_OURS;
    analysis->notify = notify;
    return zConflictResolve(index, analysis.get());
}
