// Grouping conflicts into what the user decides on, with what stands in the way on our side and
// no conflict tells: files where theirs needs a directory, a directory where theirs has a file.
#include "objects/conflict/conflict.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/pathspec.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cerrno>
#include <new>

using namespace zev;

namespace {

using ListPtr = Owned<ConflictList, zConflictListFree>;

// An entry of HEAD as one of an index; the path is lent.
struct HeadEntry {
    git_index_entry entry{};
    bool found = false;

    const IndexEntry *get() const { return found ? zev_entry(&entry) : nullptr; }
};

// Puts one conflict into an analysis. Where it belongs to no node yet a new one is made, step by
// step, and kept once it is whole.
class Insertion {
  public:
    Insertion(ConflictAnalysis *analysis, const Conflict *conflict)
        : analysis_(analysis), index_(analysis->index), conflict_(conflict),
          path_(their_entry(conflict)->path) {}

    bool run() {
        if (ConflictNode *known = find_node())
            return zConflictNodeAddPair(known, index_, conflict_);
        node_.reset(new ConflictNode{to_wide(path_)});
        return zConflictNodeAddPair(node_.get(), index_, conflict_) && add_above() && add_below() &&
               keep();
    }

  private:
    static const git_index_entry *their_entry(const Conflict *conflict) {
        const auto &[ancestor, ours, theirs] = *conflict;
        return git_entry((theirs ? theirs : ancestor ? ancestor : ours).get());
    }

    ConflictNode *find_node() const;
    bool add_above();
    bool add_obstacle(const std::string &directory);
    bool add_below();
    bool add_tracked_below();
    bool add_untracked_below(const std::string &directory);
    bool is_tracked(const std::string &path) const;
    bool add_from_disk(const std::string &path);
    bool find_head(HeadEntry *out, const char *path);
    bool find_entry(const git_tree_entry **out, std::string_view path);
    bool open_head(git_tree **out, const std::string &directory);
    bool read_root(git::Tree *out);
    bool read_below(git::Tree *out, const std::string &directory);
    bool keep();

    ConflictAnalysis *analysis_;
    Index *index_;
    const Conflict *conflict_;
    std::string path_;
    std::unique_ptr<ConflictNode> node_;
};

// The node of the path or of the nearest to the top above it. Folding keeps the places of the
// slashes.
ConflictNode *Insertion::find_node() const {
    std::u16string folded;
    fold_path(folded, path_);
    for (size_t slash = folded.find(u'/');; slash = folded.find(u'/', slash + 1)) {
        auto found = analysis_->by_path.find(folded.substr(0, slash));
        if (found != analysis_->by_path.end()) return found->second;
        if (slash == folded.npos) return nullptr;
    }
}

// ---- Files of ours where theirs needs a directory

bool Insertion::add_above() {
    for (size_t slash = path_.find('/'); slash != path_.npos; slash = path_.find('/', slash + 1))
        if (!add_obstacle(path_.substr(0, slash))) return false;
    return true;
}

// What the index tracks there without a conflict, or else what merely lies on the disk. The node
// moves up to it: the decision is about all that would lie below.
bool Insertion::add_obstacle(const std::string &directory) {
    const auto *tracked = git_index_get_bypath(index_->handle.get(), directory.c_str(), 0);
    if (tracked) {
        HeadEntry head;
        if (!find_head(&head, tracked->path)) return false;
        if (!zConflictNodeAddOurs(node_.get(), index_, zev_entry(tracked), head.get()))
            return false;
    } else {
        struct stat status;
        const std::u16string full = full_path(index_->owner, directory);
        if (!os::lstat(full.c_str(), &status) || S_ISDIR(status.st_mode)) return true;
        if (!add_from_disk(directory)) return false;
    }
    node_->path = to_wide(directory);
    return true;
}

// One that goes meanwhile is no side.
bool Insertion::add_from_disk(const std::string &path) {
    struct stat status;
    if (!os::lstat(full_path(index_->owner, path).c_str(), &status) || S_ISDIR(status.st_mode))
        return true;
    EntryPtr entry(zIndexEntryStat(index_, to_wide(path).c_str()));
    return entry && zConflictNodeAddOurs(node_.get(), index_, entry.get(), nullptr);
}

// ---- A directory of ours where theirs has a file

// Not by a status: for many such directories that would look at the index as many times.
bool Insertion::add_below() {
    struct stat status;
    if (!add_tracked_below()) return false;
    const bool is_dir =
        os::lstat(full_path(index_->owner, path_).c_str(), &status) && S_ISDIR(status.st_mode);
    return !is_dir || add_untracked_below(path_);
}

// Those of ours, as they are tracked or in conflict.
bool Insertion::add_tracked_below() {
    const std::string prefix = path_ + "/";
    size_t at = 0;
    if (git_index_find_prefix(&at, index_->handle.get(), prefix.c_str()) < 0)
        return git_error_clear(), true;
    while (const git_index_entry *entry = git_index_get_byindex(index_->handle.get(), at++)) {
        if (!std::string_view(entry->path).starts_with(prefix)) break;
        if (git_index_entry_stage(entry) % 2) continue; // of the ancestor or theirs
        HeadEntry head;
        if (!find_head(&head, entry->path)) return false;
        if (!zConflictNodeAddOurs(node_.get(), index_, zev_entry(entry), head.get())) return false;
    }
    return true;
}

// All other files, ignored ones too. What no index could hold, and a repository of its own, is no
// side; it makes way with the directory that holds it.
bool Insertion::add_untracked_below(const std::string &directory) {
    std::vector<os::Name> names;
    const std::u16string full = full_path(index_->owner, directory);
    if (!os::read_dir(full.c_str(), &names)) return errno == ENOENT || fail_errno(full.c_str());
    std::ranges::sort(names, {}, &os::Name::text);
    if (std::ranges::find(names, u".git", &os::Name::text) != names.end()) return true;
    for (const os::Name &name : names) {
        const std::string path = directory + "/" + to_utf8(name.text);
        if (!path_can_enter(path)) continue;
        if (name.directory ? !add_untracked_below(path) : !is_tracked(path) && !add_from_disk(path))
            return false;
    }
    return true;
}

bool Insertion::is_tracked(const std::string &path) const {
    return !git_index_find(nullptr, index_->handle.get(), path.c_str());
}

// ---- HEAD, read as far as it is asked for

bool Insertion::find_head(HeadEntry *out, const char *path) {
    const git_tree_entry *entry;
    if (!find_entry(&entry, path)) return false;
    if (!entry || git_tree_entry_type(entry) == GIT_OBJECT_TREE) return true;
    out->found = true;
    out->entry.mode = static_cast<uint32_t>(git_tree_entry_filemode(entry));
    out->entry.id = *git_tree_entry_id(entry);
    out->entry.path = path;
    return true;
}

// Null for what HEAD does not have.
bool Insertion::find_entry(const git_tree_entry **out, std::string_view path) {
    const size_t name = path.rfind('/') + 1; // 0 without a slash
    git_tree *tree;
    if (!open_head(&tree, std::string(path.substr(0, name ? name - 1 : 0)))) return false;
    *out = tree ? git_tree_entry_byname(tree, std::string(path.substr(name)).c_str()) : nullptr;
    return true;
}

bool Insertion::open_head(git_tree **out, const std::string &directory) {
    auto known = analysis_->head.find(directory);
    if (known == analysis_->head.end()) {
        git::Tree tree;
        if (directory.empty() ? !read_root(&tree) : !read_below(&tree, directory)) return false;
        known = analysis_->head.emplace(directory, std::move(tree)).first;
    }
    *out = known->second.get();
    return true;
}

// An unborn head has none.
bool Insertion::read_root(git::Tree *out) {
    git::Reference head;
    git::Object tree;
    int code = git_repository_head(zev::out(head), index_->owner->handle.get());
    if (code == GIT_ENOTFOUND || code == GIT_EUNBORNBRANCH) return git_error_clear(), true;
    if (!code) code = git_reference_peel(zev::out(tree), head.get(), GIT_OBJECT_TREE);
    if (code < 0) return fail_git(code);
    out->reset(reinterpret_cast<git_tree *>(tree.release()));
    return true;
}

bool Insertion::read_below(git::Tree *out, const std::string &directory) {
    const git_tree_entry *entry;
    if (!find_entry(&entry, directory)) return false;
    if (!entry || git_tree_entry_type(entry) != GIT_OBJECT_TREE) return true;
    int code =
        git_tree_lookup(zev::out(*out), index_->owner->handle.get(), git_tree_entry_id(entry));
    if (code == GIT_ENOTFOUND) return git_error_clear(), true;
    return code < 0 ? fail_git(code) : true;
}

// ---- The end

bool Insertion::keep() {
    std::u16string folded;
    fold_path(folded, to_utf8(node_->path));
    auto &nodes = analysis_->nodes;
    nodes.push_back(std::move(node_));
    Finally undo([&] { nodes.pop_back(); });
    analysis_->by_path[std::move(folded)] = nodes.back().get();
    undo.cancel();
    return true;
}

} // namespace

ConflictAnalysis *zConflictAnalysisNew(Index *index) {
    if (!index) return fail_args();
    auto *analysis = new (std::nothrow) ConflictAnalysis{nullptr, index};
    return analysis ? analysis : fail_memory();
}

void zConflictAnalysisFree(ConflictAnalysis *analysis) { delete analysis; }

uint64_t zConflictAnalysisLength(const ConflictAnalysis *analysis) {
    if (!analysis) return fail_args(), 0;
    return analysis->nodes.size();
}

ConflictNode *zConflictAnalysisEntry(const ConflictAnalysis *analysis, uint64_t position) {
    if (!analysis || position >= analysis->nodes.size()) return fail_args();
    return analysis->nodes[position].get();
}

const Notify *zConflictAnalysisNotify(const ConflictAnalysis *analysis) {
    return analysis ? analysis->notify : fail_args();
}

bool zConflictAnalysisSetNotify(ConflictAnalysis *analysis, const Notify *notify) {
    if (!analysis) return fail_args();
    analysis->notify = notify;
    return true;
}

bool zConflictAnalysisInsert(ConflictAnalysis *analysis, const Conflict *conflict) try {
    if (!analysis || !analysis->index || !conflict) return fail_args();
    return Insertion(analysis, conflict).run();
} catch (...) {
    return fail_thrown();
}

ConflictAnalysis *zConflictAnalyze(Index *index, PathSpec *spec) {
    if (!index) return fail_args();
    ListPtr list(zConflictMatch(index, spec));
    AnalysisPtr analysis(list ? zConflictAnalysisNew(index) : nullptr);
    if (!analysis) return nullptr;
    for (uint64_t i = 0; i < zVectorSize(list.get()); ++i)
        if (!zConflictAnalysisInsert(analysis.get(), zConflictListEntry(list.get(), i)))
            return nullptr;
    analysis->index = nullptr;
    analysis->head.clear();
    return analysis.release();
}
