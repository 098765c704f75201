// Reload: the tree of nodes anew from the index, with the state of each file against HEAD and the
// disk. What is tracked and gone from the disk is brought back first, unless something else stands
// in its place.
#include "commands/node.hpp"
#include "common/utf.hpp"
#include "objects/conflict/conflict.hpp"
#include "objects/operations/revert.hpp"
#include "objects/work/gitkeep.hpp"
#include "objects/work/status.hpp"
#include "objects/work/workdir.hpp"

using namespace zev;

namespace {

// Records where a node was.
void set_old_path(Node *node, std::u16string_view path) {
    const size_t name_at = path.rfind(u'/') + 1;
    node->old_prefix = path.substr(0, name_at);
    node->old_name = path.substr(name_at);
    node->flags |= kRenamed;
}

// What of a status a node can show, or lacks.
constexpr uint32_t kDiffering =
    Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_UNTRACKED | Z_SPEC_NO_IGNORED | Z_SPEC_NO_UNREADABLE;

class Reload {
  public:
    Reload(Connection *connection, Index *index) : connection_(connection), index_(index) {}

    void run();

  private:
    using Lost = std::vector<std::u16string>;
    using Sources = std::set<std::u16string>; // prefixes
    using Status = std::unique_ptr<StatusScan>;

    void build_tree();
    Status read_status();
    Lost find_lost(StatusScan *status);
    bool bring_back(const Lost &lost);
    bool revert(Index *index, const Lost &lost);

    void sweep(StatusScan &status);
    void mark_added(std::u16string_view path);
    void mark_deleted(std::u16string_view path);
    void mark_changed(std::u16string_view path);
    void mark_renamed(std::u16string_view from, std::u16string_view to);
    void mark_directories();
    void mark_directory(Node *keep, std::u16string_view origin);
    static Sources sources_of(const Node &directory, const Node &keep);

    void mark_conflicts();
    void mark_conflict(std::u16string_view path);
    std::u16string shown_path(const Conflict *conflict);

    Node *root() { return connection_->root.get(); }
    Node *find(std::u16string_view path) { return find_node(root(), path); }

    Connection *connection_;
    Index *index_; // lent
    const PathSpecPtr differing_{zPathSpecNew(nullptr, kDiffering)};
    AnalysisPtr analysis_;
    std::vector<std::u16string> moved_keeps_; // keep-files that were renamed, where they are now
};

// The status is asked for once more when something came back: for HEAD's file the index may hold
// another entry now, or none.
void Reload::run() {
    Status status = read_status();
    if (const Lost lost = find_lost(status.get()); !lost.empty() && bring_back(lost))
        status = read_status();
    build_tree();
    if (status) sweep(*status);
    mark_conflicts();
}

// ---- The tree

// A file in conflict is there once, by the entry of ours.
void Reload::build_tree() {
    constexpr int kOurs = 2;
    NodeBuilder tree(root());
    for (size_t i = 0, count = git_index_entrycount(index_->handle.get()); i < count; ++i) {
        const git_index_entry *entry = git_index_get_byindex(index_->handle.get(), i);
        const int stage = git_index_entry_stage(entry);
        if (stage == 0 || stage == kOurs) tree.add(entry->path);
    }
    tree.finish();
}

// ---- Status

// A file that is saved while it is read fails the whole; a moment later it is there.
Reload::Status Reload::read_status() {
    constexpr int kTries = 3;
    for (int tries = 0; tries < kTries; ++tries)
        if (auto scan = std::make_unique<StatusScan>(index_, differing_.get()); scan->run())
            return scan;
    return fail_raised(), Status();
}

// ---- What is gone from the disk

Reload::Lost Reload::find_lost(StatusScan *status) {
    Lost lost;
    const auto visit = [&](const StatusItem &item) {
        if (item.word & GIT_STATUS_WT_DELETED) lost.push_back(to_wide(item.path));
        return 0;
    };
    if (status) status->each(visit);
    return lost;
}

// All of them at once. Whether it came to writing the index.
bool Reload::bring_back(const Lost &lost) {
    if (index_->lock) return revert(index_, lost);
    const IndexPtr locked(zIndexHead(index_->owner, true));
    return locked && revert(locked.get(), lost);
}

bool Reload::revert(Index *index, const Lost &lost) {
    return revert_missing(index, lost) && (!index->dirty || zIndexWrite(index));
}

// ---- What differs

void Reload::sweep(StatusScan &status) {
    status.each([&](const StatusItem &item) {
        const std::u16string path = to_wide(item.path);
        if (item.word & GIT_STATUS_INDEX_NEW) mark_added(path);
        if (item.word & GIT_STATUS_INDEX_DELETED) mark_deleted(path);
        if (item.word & (GIT_STATUS_INDEX_MODIFIED | GIT_STATUS_WT_MODIFIED)) mark_changed(path);
        if (item.word & GIT_STATUS_INDEX_RENAMED) mark_renamed(to_wide(item.from), path);
        return 0;
    });
    mark_directories();
}

void Reload::mark_added(std::u16string_view path) {
    Node *node = find(path);
    if (!node) return;
    node->flags |= kAdded;
    mark_above(root(), path, kChanged);
}

// Another spelling of the name, which was added meanwhile, stays.
void Reload::mark_deleted(std::u16string_view path) {
    connection_->deleted.emplace(path);
    mark_above(root(), path, kChanged);
    const Node *node = find(path);
    if (node && node_path(*node) == path) remove_file(root(), path);
}

void Reload::mark_changed(std::u16string_view path) {
    Node *node = find(path);
    if (node && !node->is(kDirectory)) node->flags |= kChanged;
    mark_above(root(), path, kChanged);
}

// One that was changed as well is told as a delete and an add.
void Reload::mark_renamed(std::u16string_view from, std::u16string_view to) {
    mark_above(root(), to, kChanged);
    Node *node = find(to);
    if (!node || node->is(kDirectory)) return;
    if (node->is(kChanged)) {
        node->flags = kAdded;
        return mark_deleted(from);
    }
    set_old_path(node, from);
    if (node->name == kKeepFileWide && path_name(from) == kKeepFileWide)
        moved_keeps_.emplace_back(to);
}

// ---- Directories that were renamed, by their keep-files
//
// All keep-files are alike, so which of them is taken for which is a matter of chance where
// several directories moved. Other files that came along know better; what they leave over is
// shared out among directories that have none.

void Reload::mark_directories() {
    std::vector<Node *> keeps;
    for (const std::u16string &path : moved_keeps_)
        if (Node *keep = find(path); keep && keep->is(kRenamed)) keeps.push_back(keep);
    std::set<std::u16string> origins;
    for (const Node *keep : keeps) origins.insert(keep->old_prefix);
    std::vector<Node *> alone;
    for (Node *keep : keeps) {
        const Node *directory = find(path_above(keep->prefix));
        const Sources from = sources_of(*directory, *keep);
        if (from.empty()) alone.push_back(keep);
        if (from.size() == 1 && origins.erase(*from.begin())) mark_directory(keep, *from.begin());
    }
    for (Node *keep : alone) {
        const auto own = origins.find(keep->old_prefix);
        const auto origin = own != origins.end() ? own : origins.begin();
        if (origin == origins.end()) return;
        mark_directory(keep, *origin);
        origins.erase(origin);
    }
}

// The directories that the renamed files of one came from, its keep-file aside.
Reload::Sources Reload::sources_of(const Node &directory, const Node &keep) {
    Sources sources;
    for (const auto &child : directory.children)
        if (child.get() != &keep && !child->is(kDirectory) && child->is(kRenamed))
            sources.insert(child->old_prefix);
    return sources;
}

// The directory of a keep-file was renamed if nothing is left where it was, unless that is itself
// under another spelling. That says it all: hosts see the keep-file by its directory's name.
void Reload::mark_directory(Node *keep, std::u16string_view origin) {
    Node *directory = find(path_above(keep->prefix)); // or a file that shares the name
    origin = path_above(origin);
    const Node *left = find(origin);
    if (directory == root() || !directory->is(kDirectory) || (left && left != directory)) return;
    set_old_path(directory, origin);
    keep->flags &= ~uint32_t{kRenamed};
    keep->old_prefix.clear(), keep->old_name.clear();
}

// ---- Conflicts

void Reload::mark_conflicts() {
    const Owned<ConflictList, zConflictListFree> conflicts(zConflictMatch(index_, nullptr));
    analysis_.reset(conflicts ? zConflictAnalysisNew(index_) : nullptr);
    if (!analysis_) return;
    for (uint64_t i = 0, count = zConflictListLength(conflicts.get()); i < count; ++i)
        mark_conflict(shown_path(zConflictListEntry(conflicts.get(), i)));
}

void Reload::mark_conflict(std::u16string_view path) {
    if (path.empty()) return; // it couldn't be analysed
    if (Node *node = find(path)) node->flags |= kConflicted;
    mark_above(root(), path, kConflicted);
}

// The path of ours, or what stands in the way of theirs. Each conflict is analysed by itself: in
// an analysis of all, one node would stand for several.
std::u16string Reload::shown_path(const Conflict *conflict) {
    if (conflict->ours) return to_wide(git_entry(conflict->ours.get())->path);
    analysis_->by_path.clear();
    analysis_->nodes.clear();
    if (!zConflictAnalysisInsert(analysis_.get(), conflict)) return {};
    const ConflictNode &node = *analysis_->nodes.front();
    for (const ConflictSides *sides : {&node.ours, &node.theirs})
        if (const ConflictSide *side = sides->at(0); side && side->entry)
            return to_wide(side->path());
    return node.path;
}

void empty_tree(Connection &connection) {
    Node &root = *connection.root;
    root.names->clear();
    root.children.clear();
    connection.deleted.clear();
}

} // namespace

void zev::reload(Connection &connection, bool lock) {
    empty_tree(connection);
    const IndexPtr index(zIndexHead(connection.repository.get(), lock));
    if (!index) return;
    Finally failed([&] { empty_tree(connection); });
    Reload(&connection, index.get()).run();
    failed.cancel();
}

// Of a subpath only this is asked, whether it is there: the tree is always made whole.
void zCommandReload(const zwchar *workdir, const zwchar *subpath, bool lock) try {
    const ConnectionUse connection(workdir, ConnectionUse::alone);
    if (!connection || !find_node(connection->root.get(), zStrsafeW(subpath))) return;
    reload(*connection, lock);
} catch (...) {
    fail_thrown();
}
