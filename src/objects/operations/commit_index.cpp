// Commit: the whole index, or head with what a spec selects, whatever else is staged.
//
// The order in which things reach the disk, for a crash at any point:
//   1. blobs and trees, in one pack if they are many, and the commit; then all of it is synced
//   2. the index, synced for itself: what is to be committed shows as staged
//   3. the index's saved copy expires: recovery no longer puts the old index back
//   4. the reference moves, and the commit stands; then index and reference are synced
// So an index names only what is on the disk, and is never older than head. If it were, the files
// of the commit would show as staged back to what they were, and the next commit of the whole
// would undo this one. A crash between 2 and 4 leaves them staged, to be committed again.
#include "objects/work/index.hpp"

#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/bulk.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/strict.hpp"
#include "objects/work/left.hpp"
#include "objects/work/status.hpp"
#include "objects/work/transaction.hpp"
#include "system/flock.hpp"
#include "zev/commit.h"
#include "zev/repository.h"
#include "zev/tree.h"

#include <algorithm>
#include <iterator>
#include <ranges>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

using namespace zev;

namespace {

// A path that the commit changes, and how its file stood.
struct Change {
    std::string path;
    int32_t kind;
    uint32_t word;

    bool is_new() const { // to the index and HEAD
        return kind == Z_KIND_UNTRACKED || kind == Z_KIND_IGNORED;
    }
};

// Files of HEAD whose paths differ from a new one in case only. Each directory is read once.
class HeadTwins {
  public:
    explicit HeadTwins(const Tree *head) : head_(head) {}
    std::vector<std::string> of(std::string_view path);

  private:
    struct Item {
        std::string name;
        git_oid id;
        bool is_tree;
    };
    struct Place {
        std::string path; // empty or with a slash at its end
        git_oid id;
    };
    using Names = std::unordered_multimap<std::u16string, Item>; // folded

    const Names &names_in(const Place &directory);

    const Tree *head_;
    std::unordered_map<std::string, Names> directories_;
};

// Directories may be spelled in several ways, too.
std::vector<std::string> HeadTwins::of(std::string_view path) {
    std::vector<std::string> twins;
    std::vector<Place> above{{"", *git_tree_id(head_->handle.get())}};
    std::u16string name;
    for (size_t at = 0, end; at < path.size() && !above.empty(); at = end + 1) {
        end = std::min(path.find('/', at), path.size());
        fold_path(name, path.substr(at, end - at));
        std::vector<Place> below;
        for (const Place &directory : above) {
            const auto [known, last] = names_in(directory).equal_range(name);
            for (auto at_name = known; at_name != last; ++at_name) {
                const Item &item = at_name->second;
                std::string spelled = directory.path + item.name;
                if (item.is_tree)
                    below.push_back({spelled + "/", item.id});
                else if (end == path.size() && spelled != path)
                    twins.push_back(std::move(spelled));
            }
        }
        above = std::move(below);
    }
    return twins;
}

// None of a tree that a partial client lacks.
const HeadTwins::Names &HeadTwins::names_in(const Place &directory) {
    const auto [known, is_new] = directories_.try_emplace(directory.path);
    git::Tree tree;
    if (!is_new || git_tree_lookup(out(tree), head_->owner->handle.get(), &directory.id) < 0)
        return known->second;
    std::u16string folded;
    for (size_t i = 0; i < git_tree_entrycount(tree.get()); ++i) {
        const git_tree_entry *entry = git_tree_entry_byindex(tree.get(), i);
        fold_path(folded, git_tree_entry_name(entry));
        known->second.emplace(folded, Item{git_tree_entry_name(entry), *git_tree_entry_id(entry),
                                           git_tree_entry_type(entry) == GIT_OBJECT_TREE});
    }
    return known->second;
}

class PartialCommit {
  public:
    PartialCommit(Index *index, PathSpec *spec) : index_(index), spec_(spec), stager_(index) {}

    bool find_head();
    bool find_changes();
    bool drop_twins();
    bool check_kinds() const;
    bool drop_deleted();
    bool stage_changed();
    TreePtr build_tree();

  private:
    bool is_staged(const Change &change) const;
    bool may_leave_out(const Change &change, Staging staging) const;
    void tell_left_out(const Change &change, Staging staging) const;
    bool is_gone(const Change &change) const {
        return change.kind == Z_KIND_DELETED || change.kind == Z_KIND_MISSING;
    }
    TreePtr update_head();
    TreePtr rebuild();
    std::vector<git_tree_update> updates() const;

    Index *index_;
    PathSpec *spec_;
    Stager stager_;
    TreePtr head_; // null while it is not born
    std::vector<Change> changes_;
};

// The index already holds what the file holds: it need not be read and stored once more. An entry
// that says no more than that the file is to be added holds nothing, and a status of head and index
// alone has not looked at the file, whose bytes are committed all the same.
bool PartialCommit::is_staged(const Change &change) const {
    if (zPathSpecIsOn(spec_, Z_SPEC_INDEX_ONLY)) return false;
    constexpr uint32_t kIndex = GIT_STATUS_INDEX_NEW | GIT_STATUS_INDEX_MODIFIED;
    if (change.word == 0 || (change.word & ~kIndex) != 0) return false;
    const auto *entry = git_index_get_bypath(index_->handle.get(), change.path.c_str(), 0);
    return !entry || !(entry->flags_extended & GIT_INDEX_ENTRY_INTENT_TO_ADD);
}

Failure raise_unchanged() { return raise_not_found(word(u"odb.eNoChangesToCommit")); }

// A repository within is one change, whose path ends in a slash.
std::string_view bare_path(const Change &change) {
    std::string_view path = change.path;
    if (path.ends_with('/')) path.remove_suffix(1);
    return path;
}

bool PartialCommit::find_head() {
    const std::optional<bool> born = head_born(index_->owner);
    if (born == false) return true;
    if (born) head_.reset(zTreeHead(index_->owner));
    return head_ != nullptr;
}

// Renames count as what they are to a tree: one path goes, another comes.
bool PartialCommit::find_changes() {
    PathSpecPtr wanted(zPathSpecDup(spec_));
    if (!wanted || !zPathSpecSetOn(wanted.get(),
                                   Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_RENAMED | Z_SPEC_NO_TYPECHANGE))
        return false;
    StatusScan scan(index_, wanted.get());
    if (scan.run())
        scan.each([&](const StatusItem &item) {
            changes_.push_back({item.path, item.kind, item.word});
            return 0;
        });
    return !changes_.empty() || raise_unchanged();
}

// Where a name was given another case, the index has the new one only, and HEAD still the old one,
// which the spec may not select. It goes with this commit: no tree may hold both.
bool PartialCommit::drop_twins() {
    const auto is_new = [](const Change &change) {
        return change.kind == Z_KIND_ADDED || change.is_new();
    };
    if (!head_ || std::ranges::none_of(changes_, is_new)) return true;
    HeadTwins twins(head_.get());
    std::vector<Change> gone;
    for (const Change &change : changes_) {
        if (!is_new(change)) continue;
        for (std::string &twin : twins.of(change.path))
            if (git_index_find(nullptr, index_->handle.get(), twin.c_str()) < 0)
                gone.push_back({std::move(twin), Z_KIND_DELETED, GIT_STATUS_INDEX_DELETED});
    }
    if (gone.empty()) return true;
    std::ranges::move(gone, std::back_inserter(changes_));
    std::ranges::sort(changes_, {}, &Change::path);
    const auto same = [](const Change &a, const Change &b) { return a.path == b.path; };
    const auto again = std::unique(changes_.begin(), changes_.end(), same); // selected as well
    return changes_.erase(again, changes_.end()), true;
}

// What a change is called to the user. A state without a kind is one of the disk alone.
const zwchar *name_of(const Change &change) {
    if (change.word & GIT_STATUS_WT_TYPECHANGE) return zStatusName(Z_KIND_TYPECHANGE);
    if (change.word & GIT_STATUS_WT_UNREADABLE) return zStatusName(Z_KIND_UNREADABLE);
    return zStatusName(change.kind);
}

// A conflict, and a file that became a link or can't be read, is for the user to decide on: by
// adding it he says that it is meant.
bool PartialCommit::check_kinds() const {
    for (const Change &change : changes_) {
        const bool known = is_gone(change) || change.kind == Z_KIND_ADDED ||
                           change.kind == Z_KIND_MODIFIED || change.kind == Z_KIND_IGNORED ||
                           change.kind == Z_KIND_UNTRACKED;
        if (!known) return raise_args(to_wide(change.path) + u" (" + name_of(change) + u")");
    }
    return true;
}

// Before anything is staged: a file may take the name of a directory that goes, or the other
// way round.
bool PartialCommit::drop_deleted() {
    for (auto change = changes_.rbegin(); change != changes_.rend(); ++change)
        if (is_gone(*change) && !index_drop(index_, change->path.c_str())) return false;
    return true;
}

bool PartialCommit::stage_changed() {
    std::vector<Change> entered;
    entered.reserve(changes_.size());
    for (Change &change : changes_) {
        const bool done = is_gone(change) || is_staged(change);
        const Staging staging = done ? Staging::staged : stager_.stage(change.path.c_str());
        if (may_leave_out(change, staging))
            tell_left_out(change, staging);
        else if (finish_named(index_, staging, change.path.c_str()))
            entered.push_back(std::move(change));
        else
            return false;
    }
    changes_ = std::move(entered);
    return !changes_.empty() || raise_unchanged();
}

// A new file whose name can't enter, or that nobody lets us read, would keep everything else from
// being committed. Who names it is told why.
bool PartialCommit::may_leave_out(const Change &change, Staging staging) const {
    const bool can_enter =
        staging != Staging::refused && staging != Staging::twin && staging != Staging::closed;
    if (!change.is_new() || can_enter) return false;
    return !spec_matcher(spec_).names_itself(bare_path(change));
}

void PartialCommit::tell_left_out(const Change &change, Staging staging) const {
    const std::string path(bare_path(change));
    raise_left(index_, staging, path.c_str());
    notify_skipped(spec_->notify, to_wide(path).c_str());
}

// What to do to head's tree, by entries that the index holds by now.
std::vector<git_tree_update> PartialCommit::updates() const {
    std::vector<git_tree_update> updates;
    for (const Change &change : changes_) {
        git_tree_update update{};
        update.path = change.path.c_str();
        update.action = GIT_TREE_UPDATE_REMOVE;
        if (!is_gone(change)) {
            const auto *entry = git_index_get_bypath(index_->handle.get(), update.path, 0);
            if (!entry) continue; // a file of the same commit has taken its directory's name
            update.action = GIT_TREE_UPDATE_UPSERT;
            update.id = entry->id;
            update.filemode = static_cast<git_filemode_t>(entry->mode);
        }
        updates.push_back(update);
    }
    return updates;
}

// Head's tree with the changes: only directories on the way to a change are read and written.
// Null without a failure worth raising when a file stands where a directory was, or the like.
TreePtr PartialCommit::update_head() {
    if (!head_) return nullptr;
    auto changes = updates();
    std::erase_if(changes, [&](const git_tree_update &change) { // staged, then deleted
        git::Entry entry;
        if (change.action != GIT_TREE_UPDATE_REMOVE) return false;
        const int code = git_tree_entry_bypath(out(entry), head_->handle.get(), change.path);
        return code < 0 || git_tree_entry_type(entry.get()) == GIT_OBJECT_TREE; // of its name
    });
    git_oid id;
    StrictOff off;
    int code = git_tree_create_updated(&id, index_->owner->handle.get(), head_->handle.get(),
                                       changes.size(), changes.data());
    return TreePtr(code < 0 ? nullptr : zTreeByid(index_->owner, git::oid(&id)));
}

// The same by an index of the whole tree.
TreePtr PartialCommit::rebuild() {
    IndexPtr whole(head_ ? zIndexBytree(head_.get()) : zIndexNew(index_->owner));
    if (!whole) return nullptr;
    for (const Change &change : changes_)
        if (is_gone(change) && !index_drop(whole.get(), change.path.c_str())) return nullptr;
    for (const Change &change : changes_) {
        if (is_gone(change)) continue;
        const auto *entry = git_index_get_bypath(index_->handle.get(), change.path.c_str(), 0);
        if (entry && !index_enter(whole.get(), *entry)) return nullptr;
    }
    return TreePtr(zIndexWriteTree(whole.get()));
}

// What changed may come to nothing: a submodule's own files, line ends that a filter evens out.
TreePtr PartialCommit::build_tree() {
    TreePtr tree = update_head();
    if (!tree) tree = rebuild();
    if (!tree || !head_ ||
        !git_oid_equal(git_tree_id(tree->handle.get()), git_tree_id(head_->handle.get())))
        return tree;
    return raise_unchanged(), nullptr;
}

// The commit, and the index before its reference moves. The saved copy is that of the lock's first
// write. If the caller has written since, going back to it would take his work too; then what was
// staged on the way stays staged.
CommitPtr finish(Index *index, const zwchar *reference, const zwchar *author, const zwchar *message,
                 Tree *tree, bool writes, std::span<const Oid> others) {
    Flock *lock = index->lock.get();
    const bool can_go_back = lock && !index->written;
    const auto before_move = [&] {
        if (reference && !index_stands(index)) return false;
        if (reference) drop_left_copy(index->owner, reference);
        return (!writes || index_write_synced(index)) && (!lock || flock_expire(lock));
    };
    CommitPtr commit(commit_create(reference, author, message, tree, before_move, others));
    if (commit) index_committed(index, zCommitId(commit.get()));
    if (!commit && can_go_back && index->written) index_put_back(index);
    return commit;
}

} // namespace

// The tree to commit, in the store with all that it names.
static TreePtr tree_to_commit(Index *index, PathSpec *spec) {
    auto bulk = BulkWriter::begin(index->owner);
    if (!bulk) return nullptr;
    TreePtr tree;
    if (!spec) {
        tree.reset(zIndexWriteTree(index));
    } else {
        PartialCommit commit(index, spec);
        if (commit.find_head() && commit.find_changes() && commit.drop_twins() &&
            commit.check_kinds() && commit.drop_deleted() && commit.stage_changed())
            tree = commit.build_tree();
    }
    return bulk->finish() ? std::move(tree) : nullptr;
}

Commit *zIndexCommitWith(Index *index, PathSpec *spec, const zwchar *reference,
                         const zwchar *author, const zwchar *message, const Oid *others,
                         uint64_t count) try {
    if (!index || !author || !message || (!others && count)) return fail_args();
    TreePtr tree = tree_to_commit(index, spec);
    if (!tree) return nullptr;
    // Writing the whole also keeps what the index has learned of its trees.
    const bool writes = !spec || index->dirty;
    return finish(index, reference, author, message, tree.get(), writes, {others, count}).release();
} catch (...) {
    return fail_thrown();
}

Commit *zIndexCommit(Index *index, PathSpec *spec, const zwchar *reference, const zwchar *author,
                     const zwchar *message) {
    return zIndexCommitWith(index, spec, reference, author, message, nullptr, 0);
}
