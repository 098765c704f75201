// A commit against a server: the copy is brought up to date, the commit made on the branch and once
// more on the tracking reference, and the server told what it changed. It makes a commit of its
// own, and the tracking reference takes that one.
//
// The order in which things reach the disk, for a crash at any point:
//   1. complete copies of index, branch and tracking reference, beside them, as their locks
//   2. the commit, as any other (commit_index.cpp); the tracking reference moves
//   3. the server's own commit stands, on its side
//   4. its commit object; the tracking reference moves there; the copies expire; all of it is
//   synced
//   5. the note says so (standing.hpp)
// A crash before 4, as a failure, leads back to the files as they were locked: the work of the user
// shows as not committed, and if the server has it all the same, the next update finds both equal.
// Nothing may stay of a commit that the server has not got: an update would take it back.
#include "remote/changes.hpp"
#include "remote/push.hpp"
#include "remote/update_context.hpp"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "objects/conflict/conflict.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/diff.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/strict.hpp"
#include "objects/store/tree_pairs.hpp"
#include "objects/work/file_mode.hpp"
#include "objects/work/status.hpp"
#include "objects/work/treebuilder.hpp"
#include "system/os.hpp"
#include "zev/diff.h"
#include "zev/index.h"
#include "zev/lang.h"
#include "zev/oid.h"
#include "zev/reference.h"

#include <cerrno>
#include <optional>
#include <unordered_map>
#include <vector>

using namespace zev;

namespace {

using ConflictListPtr = Owned<ConflictList, zConflictListFree>;

constexpr const zwchar *kUnchanged = u"odb.eNoChangesToCommit";
constexpr const zwchar *kUnmerged = u"odb.eFailedToMergeLocalChanages";

// What the steps share.
struct CommitContext {
    Repository *repository;
    PathSpec *paths; // the caller's selection, null for what is staged
    Push push;
    CheckSpecPtr spec{}; // the selection, for status and update
    TransactionPtr transaction{};
    BranchPtr head{}, upstream{};
    std::optional<Oid> made{};  // the commit on the branch
    bool nothing_to_do = false; // of what was to be committed the server has all

    const Notify *notify() const { return push.notify; }
};

Failure tell(const CommitContext &commit, const zwchar *key, const zwchar *argument = nullptr) {
    return notify_error(commit.notify(), key, argument);
}

// ---- Preparation

// The selection as status and update see it.
bool select(CommitContext &commit) {
    constexpr uint32_t kLeftOut = Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_TYPECHANGE | Z_SPEC_NO_RENAMED;
    commit.spec.reset(zCheckSpecNew());
    if (!commit.spec || (commit.paths && !zCheckSpecSetPaths(commit.spec.get(), commit.paths)) ||
        !zCheckSpecSetNotify(commit.spec.get(), commit.notify()) ||
        !zPathSpecSetOn(zCheckSpecPaths(commit.spec.get()), kLeftOut))
        return tell(commit, u"odb.eUnableToResolvePathspec");
    return true;
}

bool prepare(CommitContext &commit) {
    return recover(commit.repository, commit.notify()) && select(commit) &&
           find_branches(commit.repository, commit.notify(), commit.head, commit.upstream) &&
           start_transaction(commit.repository, commit.notify(), commit.transaction);
}

// ---- Whether there is anything to commit

bool fail_unchanged() { return fail_os(ENOENT, word(kUnchanged)); }

// Without a selection the commit is of what is staged; without patterns nobody has asked for
// ignored files.
PathSpecPtr what_to_look_at(const CommitContext &commit) {
    PathSpecPtr paths(zPathSpecDup(zCheckSpecPaths(commit.spec.get())));
    if (!paths) return nullptr;
    if (!commit.paths) zPathSpecSetOn(paths.get(), Z_SPEC_INDEX_ONLY);
    if (!zPathSpecCount(paths.get())) zPathSpecSetOn(paths.get(), Z_SPEC_NO_IGNORED);
    zPathSpecSetOff(paths.get(), Z_SPEC_MUST_MATCH);
    return paths;
}

// The first change is enough. False, told, where that can't be found out.
bool look_for_changes(const CommitContext &commit, bool &found) {
    const IndexPtr index(zIndexHead(commit.repository, false));
    if (!index) return tell(commit, u"odb.eUnableToOpenIndex");
    const PathSpecPtr paths = what_to_look_at(commit);
    found = false;
    const auto first = [](const zwchar *, int32_t, void *any) -> int32_t {
        return *static_cast<bool *>(any) = true;
    };
    return (paths && zStatusForeach(index.get(), paths.get(), first, &found)) ||
           tell(commit, u"odb.eFailedToCheckStatus");
}

// Commits that the server never got: what they did is a change from the update on. So may be what
// nobody can tell as long as a tree is missing.
bool may_be_unsent(const CommitContext &commit) {
    const KeptFailure kept;
    Standing standing;
    if (!look_at_standing(commit.repository, commit.head.get(), commit.upstream.get(),
                          tracked_tip(commit.repository, commit.upstream.get()), Losses::count,
                          standing))
        return true;
    if (standing.is_plain()) return false;
    const TreePtr ours(zBranchTree(commit.head.get()));
    bool found = false;
    const auto take = [&](const std::string &path, auto, auto) {
        found = found || !commit.paths || spec_matches(commit.paths, path);
    };
    const bool done = ours && TreePairs(commit.repository->handle.get(), false, take)
                                  .walk(standing.ground ? standing.ground->handle.get() : nullptr,
                                        ours->handle.get());
    return found || !done;
}

bool check_changes(const CommitContext &commit) {
    bool found = false;
    if (!look_for_changes(commit, found)) return false;
    if (found || may_be_unsent(commit)) return true;
    fail_unchanged();
    return notify_error(commit.notify(), kUnchanged);
}

// ---- The update before it

// Where the user broke off in it, the copy is not up to date: no commit, and his break is the end.
bool update(CommitContext &commit) {
    bool canceled = false;
    const bool done = update_copy(commit.push.remote, commit.spec.get(), &canceled);
    if (!done || !canceled) return done;
    commit.push.canceled = true;
    return raise_canceled();
}

// ---- On the branch

// Those of what is to be committed. None are a failure of a spec that asks for a match, which is
// none here; any other is told.
bool look_for_conflicts(const CommitContext &commit, Index *index, bool &found) {
    found = false;
    if (!zIndexHasConflicts(index)) return true;
    const ConflictListPtr list(zConflictMatch(index, commit.paths));
    if (list)
        found = zConflictListLength(list.get()) > 0;
    else if (zErrorClass() != error_class::kNotFound)
        return tell(commit, u"odb.eFailedToCheckStatus");
    return true;
}

// As it is looked at, so it is committed.
PathSpecPtr what_to_commit(const CommitContext &commit) {
    PathSpecPtr paths(zPathSpecDup(commit.paths));
    if (paths && !zPathSpecCount(paths.get())) zPathSpecSetOn(paths.get(), Z_SPEC_NO_IGNORED);
    return paths;
}

bool none_left(CommitContext &commit) {
    fail_unchanged();
    zNotifyInfo(commit.notify(), u"%s", zErrorMsg());
    commit.nothing_to_do = true;
    return false;
}

bool commit_locally(CommitContext &commit) {
    const IndexPtr index = index_of_holder(commit.repository);
    if (!index) return tell(commit, u"odb.eUnableToOpenIndex");
    bool found = false;
    if (!look_for_conflicts(commit, index.get(), found)) return false;
    if (found) {
        raise_other(word(u"odb.eNeedResolveConflicts"), zBranchName(commit.head.get()));
        return tell(commit, u"odb.eNeedResolveConflicts");
    }
    if (!look_for_changes(commit, found)) return false;
    if (!found) return none_left(commit);
    const PathSpecPtr paths = commit.paths ? what_to_commit(commit) : nullptr;
    if (commit.paths && !paths) return false;
    const CommitPtr made(zIndexCommit(index.get(), paths.get(), zBranchMerge(commit.head.get()),
                                      commit.push.author, commit.push.message));
    if (made) return commit.made = *zCommitId(made.get()), true;
    if (!*zErrorMsg()) return notify_raised(commit.notify());
    const KeptFailure kept;
    zNotifyError(commit.notify(), u"%s", zErrorMsg());
    return false;
}

// ---- Once more on the tracking reference, on top of what the server has

class Replay {
  public:
    explicit Replay(CommitContext &commit) : commit_(commit) {}
    bool run();

  private:
    bool find_base();
    bool find_changes();
    bool can_be_sent() const;
    void tell_changes() const;
    TreePtr update_base() const;
    TreePtr rebuild() const;
    bool is_up_to_date(const Tree *tree) const;

    CommitContext &commit_;
    CommitPtr made_; // on the branch
    DiffListPtr changes_;
    TreePtr base_; // null where the server has no commit
};

bool Replay::find_base() {
    const zwchar *name = zBranchMerge(commit_.upstream.get());
    const std::optional<bool> there = reference_there(commit_.repository, name);
    if (there == false) return true;
    if (there) base_.reset(zTreeByref(commit_.repository, name));
    return base_ || tell(commit_, kUnmerged);
}

bool Replay::find_changes() {
    made_.reset(zCommitByid(commit_.repository, &*commit_.made));
    if (!made_)
        return tell(commit_, u"odb.eFailedToResolveCommit_s", zBranchName(commit_.head.get()));
    changes_ = changes_of_commit(made_.get());
    if (changes_) return can_be_sent();
    if (zErrorClass() != error_class::kNotFound) return tell(commit_, kUnmerged);
    roll_back(commit_.repository, commit_.transaction.get(), commit_.head.get(),
              commit_.upstream.get(), commit_.made); // the commit changes nothing
    return none_left(commit_);
}

// The server keeps files. What stands for a repository within names a commit that it hasn't got and
// can't be sent; where it goes, nothing is to be sent. A commit without it would differ from the
// one here, and the next update would take it back here.
bool Replay::can_be_sent() const {
    for (uint64_t i = 0; i < zDiffListLength(changes_.get()); ++i) {
        const DiffEntry *entry = zDiffListEntry(changes_.get(), i);
        if (!entry->new_file || entry->new_file->mode != GIT_FILEMODE_COMMIT) continue;
        const zwchar *path = zDiffEntryNewPath(entry);
        notify_action(commit_.notify(), u"action.sFailed", path);
        raise_args();
        return tell(commit_, u"odb.eForeignRepository_s", path);
    }
    return true;
}

// What goes comes first.
void Replay::tell_changes() const {
    const uint64_t count = zDiffListLength(changes_.get());
    for (const bool goes : {true, false})
        for (uint64_t i = 0; i < count; ++i) {
            const DiffEntry *entry = zDiffListEntry(changes_.get(), i);
            if ((entry->status == Z_KIND_DELETED) != goes) continue;
            const zwchar *word = goes                            ? u"action.sDeleted"
                                 : entry->status == Z_KIND_ADDED ? u"action.sAdded"
                                                                 : u"action.sModified";
            notify_action(commit_.notify(), word, zDiffEntryNewPath(entry));
        }
}

struct Update {
    std::string path;
    git_oid id{};
    uint16_t mode = 0; // 0: it goes
};

// With the modes that the server is told: its tree is to be this one, and isn't fetched.
std::vector<Update> updates_of(const DiffList *changes) {
    std::vector<Update> updates;
    for (uint64_t i = 0; i < zDiffListLength(changes); ++i) {
        const DiffEntry *entry = zDiffListEntry(changes, i);
        const bool goes = entry->status == Z_KIND_DELETED;
        updates.push_back({to_utf8(zDiffEntryNewPath(entry)), *git::oid(zDiffEntryNewId(entry)),
                           goes ? uint16_t{0} : entry->new_file->mode});
    }
    return updates;
}

bool is_file(git_tree *tree, const char *path) {
    git::Entry there;
    const int code = git_tree_entry_bypath(out(there), tree, path);
    return !code && git_tree_entry_type(there.get()) != GIT_OBJECT_TREE;
}

// Only directories on the way to a change are read and written. Null, with nothing told, where a
// file takes a directory's name, or the other way round. A removal would take a directory, too.
TreePtr Replay::update_base() const {
    if (!base_) return nullptr;
    const std::vector<Update> updates = updates_of(changes_.get());
    std::vector<git_tree_update> steps;
    for (const Update &update : updates) {
        const auto action = update.mode ? GIT_TREE_UPDATE_UPSERT : GIT_TREE_UPDATE_REMOVE;
        if (update.mode || is_file(base_->handle.get(), update.path.c_str()))
            steps.push_back(
                {action, update.id, static_cast<git_filemode_t>(update.mode), update.path.c_str()});
    }
    git_oid id;
    const StrictOff partial;
    const int code = git_tree_create_updated(&id, commit_.repository->handle.get(),
                                             base_->handle.get(), steps.size(), steps.data());
    return TreePtr(code < 0 ? nullptr : zTreeByid(commit_.repository, git::oid(&id)));
}

TreePtr Replay::rebuild() const {
    const Owned<TreeBuilder, zTreeBuilderFree> builder(
        zTreeBuilderNew(commit_.repository, base_.get()));
    if (!builder) return nullptr;
    const std::vector<Update> updates = updates_of(changes_.get());
    const StrictOff partial;
    for (const Update &update : updates)
        if (!update.mode && !index_drop(builder->index.get(), update.path.c_str())) return nullptr;
    for (const Update &update : updates) {
        git_index_entry entry{};
        entry.path = update.path.c_str();
        entry.id = update.id;
        entry.mode = update.mode;
        if (update.mode && !index_enter(builder->index.get(), entry)) return nullptr;
    }
    return TreePtr(zIndexWriteTree(builder->index.get()));
}

bool is_old_side(const DiffFile *file, TreePairs::Entry entry) {
    if (!file || !entry) return !file && !entry;
    return git_oid_equal(git_tree_entry_id(entry), git::oid(&file->id)) &&
           git_tree_entry_filemode(entry) == file->mode;
}

// What the update had to leave (a full disk, a file in use) is somebody's newer work, which nobody
// here has seen: the server's tree may become ours only where it is what the commit went out from.
// What the user may not see there is none that an update would bring him. False, told.
bool Replay::is_up_to_date(const Tree *tree) const {
    if (!base_) return true;
    const AuthdbPtr rules(zAuthdbOpen(commit_.repository));
    if (!rules) return tell(commit_, u"odb.eFailedToOpenAuthz");
    std::unordered_map<std::string, const DiffEntry *> changes;
    for (uint64_t i = 0; i < zDiffListLength(changes_.get()); ++i) {
        const DiffEntry *entry = zDiffListEntry(changes_.get(), i);
        changes.emplace(to_utf8(zDiffEntryNewPath(entry)), entry);
    }
    std::u16string newer, hidden;
    const auto take = [&](const std::string &path, TreePairs::Entry theirs, TreePairs::Entry) {
        const auto change = changes.find(path);
        const DiffFile *before = change == changes.end() ? nullptr : change->second->old_file.get();
        if (change != changes.end() && is_old_side(before, theirs)) return;
        const std::u16string wide = to_wide(path);
        const bool seen = zAuthdbEntryReadable(rules.get(), wide.c_str());
        notify_action(commit_.notify(), seen ? u"action.sFailed" : u"action.sUnauthorized",
                      wide.c_str());
        (seen ? newer : hidden) = wide;
    };
    git_repository *git = commit_.repository->handle.get();
    if (!TreePairs(git, false, take).walk(base_->handle.get(), tree->handle.get()))
        return tell(commit_, kUnmerged);
    if (!newer.empty())
        return raise_other(word(u"srv.eWorktreeNeedsUpdate"), newer), tell(commit_, kUnmerged);
    if (!hidden.empty()) // there may be no update that brings it
        return raise_other(word(u"action.sUnauthorized"), hidden), tell(commit_, kUnmerged);
    return true;
}

bool Replay::run() {
    if (!find_changes() || !find_base()) return false;
    tell_changes();
    TreePtr tree = update_base();
    if (!tree) tree = rebuild();
    if (!tree) return tell(commit_, kUnmerged);
    if (!is_up_to_date(tree.get())) return false;
    const git_commit *made = made_->handle.get();
    const zwchar *name = zBranchMerge(commit_.upstream.get());
    const auto has_base_still = [&] { // or the commit would take from it all that it doesn't change
        return reference_there(commit_.repository, name) == (base_ != nullptr) || fail_moved();
    };
    const CommitPtr replayed(commit_create(name, to_wide(git_commit_author(made)->name).c_str(),
                                           to_wide(git_commit_message(made)).c_str(), tree.get(),
                                           has_base_still));
    return replayed || tell(commit_, kUnmerged);
}

// ---- The whole

bool push(CommitContext &commit) {
    commit.push.upstream = commit.upstream.get();
    return push_commit(commit.push);
}

// What somebody committed by git since the update lies below the commit that was sent, and was not
// sent with it: then the note stays where it is.
void note(CommitContext &commit) try {
    const std::optional<Oid> agreed = agreed_commit(commit.repository, commit.head.get());
    const CommitPtr made(zCommitByid(commit.repository, &*commit.made));
    const Oid *below = made ? zCommitParentId(made.get()) : nullptr;
    const bool follows = made && (agreed ? below && zOidIsEqual(&*agreed, below) : !below);
    if (follows) note_agreed(commit.repository, commit.head.get(), *commit.made);
    note_server(commit.repository, commit.head.get(),
                tracked_tip(commit.repository, commit.upstream.get()));
} catch (...) {
    fail_thrown(); // what is not noted is found out
}

// The server has it: from here on nothing goes back. Where the copies can't expire, recovery would:
// that is told, and the next update finds both equal.
bool settle(CommitContext &commit) {
    if (!expire_locks(commit.transaction.get())) return tell(commit, u"odb.eFailedToSaveIndex");
    const KeptFailure kept;
    const zwchar *path = zRepositoryPath(commit.repository);
    if (path && !os::sync_tree(path)) fail_errno(path), log_raised(kWarning);
    note(commit);
    return true;
}

bool run(CommitContext &commit) try {
    return prepare(commit) && check_changes(commit) && update(commit) &&
           lock_all(commit.transaction.get(), commit.notify(), commit.head.get(),
                    commit.upstream.get()) &&
           commit_locally(commit) && Replay(commit).run() && push(commit) && settle(commit);
} catch (...) {
    return fail_thrown();
}

} // namespace

bool zRemoteCommit(Remote *remote, PathSpec *paths, const zwchar *author,
                   const zwchar *message) try {
    if (!remote || !author || !message) return fail_args();
    const Notify *notify = paths ? paths->notify : nullptr;
    if (zPathSpecIsOn(paths, Z_SPEC_INDEX_ONLY) && !zPathSpecCount(paths)) paths = nullptr;
    CommitContext commit{remote->owner, paths, {remote, nullptr, author, message, notify}};
    notify_start(notify, u"action.sCommit");
    const bool sent = run(commit);
    const bool done = sent || commit.nothing_to_do;
    tell_end(notify, done, commit.push.canceled);
    if (!done)
        roll_back(commit.repository, commit.transaction.get(), commit.head.get(),
                  commit.upstream.get(), commit.made);
    return done;
} catch (...) {
    return fail_thrown();
}
