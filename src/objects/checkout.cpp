// The order in which things reach the disk, for a crash at any point:
//   1. complete copies of index and branch, beside them, as their locks
//   2. files of the work directory, path by path; what they held is in the base's commit, in the
//      store, where it was staged before, or in the trash
//   3. trees and commit, all of it synced; the index; the reference
// A crash before the locks are let go leaves the copies, and recovery puts index and branch back.
// Files that came in until then show as local changes that are equal to the target's.
#include "objects/checkout.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/bulk.hpp"
#include "objects/commit.hpp"
#include "objects/notify.hpp"
#include "objects/tree.hpp"
#include "objects/tree_changes.hpp"
#include "system/os.hpp"
#include "zev/oid.h"
#include "zev/pathspec.h"
#include "zev/reference.h"
#include "zev/repository.h"
#include "zev/status.h"

#include <algorithm>

using namespace zev;

namespace {

git_index_entry entry_from(const DiffFile *file) {
    git_index_entry entry{};
    if (!file) return entry;
    entry.id = *git::oid(&file->id);
    entry.mode = file->mode;
    return entry;
}

// Restoring index and branch after a failure leaves libgit2's own index, of which there is one for
// a repository, as the operation had it.
void forget_changes(Index *index) {
    if (index) zIndexRead(index, true);
}

} // namespace

namespace zev {

// The message goes before the reason that was raised.
Failure Checkout::tell(const zwchar *key, const zwchar *argument) {
    argument ? zSetErrorMsg(word(key), argument) : zSetErrorMsg(u"%s", word(key));
    zNotifyError(notify_, u"%s", zErrorDetail());
    return {};
}

// ---- Preparing

bool Checkout::prepare(const CheckSpec *spec) {
    spec_.reset(spec ? zCheckSpecDup(spec) : zCheckSpecNew());
    PathSpec *paths = spec_ ? zCheckSpecPaths(spec_.get()) : nullptr;
    constexpr uint32_t kLeftOut = Z_SPEC_NO_RENAMED | Z_SPEC_NO_TYPECHANGE | Z_SPEC_NO_UNTRACKED;
    if (!paths || !zPathSpecSetOn(paths, kLeftOut) || !zPathSpecSetOff(paths, Z_SPEC_MUST_MATCH))
        return tell(u"odb.eUnableToResolvePathspec");
    force() ? zPathSpecSetOff(paths, Z_SPEC_NO_UNCHANGED)
            : zPathSpecSetOn(paths, Z_SPEC_NO_UNCHANGED);
    const zwchar *name = zCheckSpecBranch(spec_.get());
    branch_.reset(zBranchLookup(repository_, name ? name : u"HEAD"));
    if (!branch_) return tell(u"odb.eUnableToOpenHeadRef");
    return take_locks() && find_target();
}

bool Checkout::take_locks() {
    transaction_.reset(zTransactionNew(repository_));
    if (!transaction_) return tell(u"odb.eUnableToCreateTransation");
    if (zCheckSpecIsOn(spec_.get(), Z_CHECK_NO_LOCKS)) return true;
    const zwchar *reference = zBranchMerge(branch_.get());
    if (!zTransactionLockIndex(transaction_.get())) return tell(u"odb.eUnableToLockWorkingCopy");
    if (!zTransactionLockRef(transaction_.get(), reference))
        return tell(u"odb.eUnableToLockBranch_s", reference);
    return true;
}

bool Checkout::find_target() {
    if (!resolve_base()) return false;
    const Oid *id = zCheckSpecTarget(spec_.get());
    if (!id && base_commit_) id = zCommitId(base_commit_.get());
    if (id) target_.reset(zObjectByid(repository_, id, Z_OBJECT_ANY));
    if (!id) zRaiseNotFound(nullptr);
    return target_ || tell(u"odb.eFailedToResolveTree_s", zCheckSpecStringfy(spec_.get()));
}

// A branch that is not born has neither commit nor tree; one that can't be read is a failure.
bool Checkout::resolve_base() {
    const zwchar *reference = zBranchMerge(branch_.get());
    if (!zReferenceExists(repository_, reference)) return true;
    base_commit_.reset(zCommitByref(repository_, reference));
    if (base_commit_) base_tree_.reset(zCommitTree(base_commit_.get()));
    return base_tree_ || tell(u"odb.eFailedToResolveTree_s", reference);
}

bool Checkout::make_states() {
    index_.reset(zIndexHead(repository_, false));
    if (!index_) return tell(u"odb.eUnableToOpenIndex");
    target_tree_.reset(zTreePeel(target_.get()));
    if (!target_tree_) return tell(u"odb.eFailedToResolveTree_s", zCheckSpecStringfy(spec_.get()));
    stager_.emplace(index_.get(), notify_);
    writer_.emplace(index_.get());
    return true;
}

// ---- Comparing

bool Checkout::compare() {
    const DiffListPtr list = compare_trees();
    if (!list) return tell(u"odb.eFailedToMergeRemoteChanages");
    add_steps(list.get());
    if (!stage_local_work()) return tell(u"odb.eFailedToMergeRemoteChanages");
    if (force() && !add_local_steps()) return tell(u"odb.eFailedToMergeRemoteChanages");
    std::vector<std::u16string> announced;
    if (force())
        for (const CheckoutStep &step : steps_)
            if (local_status(step)) announced.push_back(step.wide);
    trash_.emplace(repository_, std::move(announced));
    return true;
}

// With force also what the target leaves unchanged takes part.
DiffListPtr Checkout::compare_trees() {
    PathSpec *paths = zCheckSpecPaths(spec_.get());
    Tree *from = base_tree_.get(), *to = target_tree_.get();
    return DiffListPtr(force() ? zDiffTreeToTree(from, to, paths, nullptr)
                               : diff_trees(from, to, paths, nullptr));
}

// Deletions first: a file may take the name of a directory that goes, or the other way round.
void Checkout::add_steps(const DiffList *list) {
    for (const bool going : {true, false}) {
        for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
            const DiffEntry *entry = zDiffListEntry(list, i);
            if ((entry->status == Z_KIND_DELETED) != going) continue;
            const zwchar *path = zDiffEntryNewPath(entry);
            steps_.push_back({to_utf8(path), path, entry->status, true,
                              entry_from(entry->old_file.get()),
                              entry_from(entry->new_file.get())});
        }
    }
}

// What was added here, and what the target doesn't know, has to go first of all.
bool Checkout::add_local_steps() {
    std::unordered_set<std::string_view> known;
    for (const CheckoutStep &step : steps_) known.insert(step.path);
    const DiffListPtr local(zDiffTreeToIndex(repository_, base_tree_.get(), index_.get(),
                                             zCheckSpecPaths(spec_.get()), nullptr));
    if (!local) return false;
    std::vector<CheckoutStep> added;
    for (uint64_t i = 0; i < zDiffListLength(local.get()); ++i) {
        const DiffEntry *entry = zDiffListEntry(local.get(), i);
        if (entry->status != Z_KIND_ADDED) continue;
        const zwchar *path = zDiffEntryNewPath(entry);
        if (!known.contains(to_utf8(path)))
            added.push_back({to_utf8(path), path, Z_KIND_DELETED, false, {}, {}});
    }
    steps_.insert(steps_.begin(), std::make_move_iterator(added.begin()),
                  std::make_move_iterator(added.end()));
    return true;
}

// What the user did to files that the target changes, so that it is in the store before anything
// is written over, and shows as a change beside the base.
bool Checkout::stage_local_work() {
    struct stat status;
    const zwchar *path = zIndexPath(index_.get());
    if (path && os::lstat(path, &status)) index_time_ = status.st_mtim;
    const auto bulk = BulkWriter::begin(repository_);
    if (!bulk) return false;
    for (const CheckoutStep &step : steps_) {
        if (zNotifyIsUsrbrk(notify_)) return zRaiseCanceled(nullptr), false;
        if (!stage(step)) unreadable_.insert(step.path);
    }
    return bulk->finish();
}

// A conflict stays one until the user resolves it.
bool Checkout::stage(const CheckoutStep &step) {
    struct stat status;
    const auto *known = git_index_get_bypath(index_->handle.get(), step.path.c_str(), 0);
    if (!known && zIndexPathIsConflict(index_.get(), step.wide.c_str())) return true;
    if (!os::lstat(full_path(repository_, step.path).c_str(), &status)) return true;
    const bool young = known && (known->mtime.seconds > index_time_.tv_sec ||
                                 (known->mtime.seconds == index_time_.tv_sec &&
                                  known->mtime.nanoseconds >= index_time_.tv_nsec));
    if (known && entry_has_stat(*known, status) && !young) return true;
    if (S_ISDIR(status.st_mode) || !check_path(step.path)) return true;
    return stager_->stage(step.path.c_str()) == Staging::staged;
}

// ---- Walking

// The progress is of what is walked. A break keeps what was done.
bool Checkout::walk() {
    const int total = static_cast<int>(steps_.size());
    int count = 0;
    for (CheckoutStep &step : steps_) {
        if (zNotifyIsUsrbrk(notify_)) return canceled_ = true;
        if (!force() && step.status != Z_KIND_ADDED && step.status != Z_KIND_MODIFIED &&
            step.status != Z_KIND_DELETED)
            return zRaiseInvalidArgs(u"%s", step.wide.c_str()), false;
        if (const zwchar *told = apply(step)) notify_action(notify_, told, step.wide.c_str());
        zNotifyProgress(notify_, word(u"action.sCheckoutProgress_d_d"), ++count, total);
    }
    return true;
}

const zwchar *Checkout::apply(CheckoutStep &step) {
    if (!check_path(step.path) || unreadable_.contains(step.path)) return u"action.sSkipped";
    if (force()) return step.status == Z_KIND_DELETED ? forced_delete(step) : forced(step);
    if (step.status == Z_KIND_ADDED) return added(step);
    return step.status == Z_KIND_MODIFIED ? modified(step) : deleted(step);
}

// ---- Finishing

bool Checkout::finish() {
    const TreePtr tree = build_tree();
    if (!tree) return tell(u"odb.eFailedToBuildTree");
    return commit(tree.get());
}

// The target's own tree, if all of it was taken; else the base's with what was.
Checkout::TreePtr Checkout::build_tree() {
    const auto of_target = [](const CheckoutStep &step) { return step.in_target; };
    const auto wanted = static_cast<size_t>(std::ranges::count_if(steps_, of_target));
    const bool whole = !zPathSpecCount(zCheckSpecPaths(spec_.get())) && taken_.size() == wanted;
    if (whole) return TreePtr(zTreeByid(repository_, zTreeId(target_tree_.get())));
    const Owned<TreeBuilder, zTreeBuilderFree> builder(
        zTreeBuilderNew(repository_, base_tree_.get()));
    if (!builder) return nullptr;
    for (const CheckoutStep *step : taken_) {
        git_index_entry entry = step->theirs;
        entry.path = step->path.c_str();
        const bool done = entry.mode ? index_drop_below(builder->index.get(), step->path) &&
                                           index_enter(builder->index.get(), entry)
                                     : index_drop(builder->index.get(), step->path.c_str());
        if (!done) return nullptr;
    }
    return TreePtr(zTreeBuilderWrite(builder.get(), repository_));
}

// The first digits of its commit.
std::u16string Checkout::name_of_target() const {
    git::Object commit;
    if (git_object_peel(out(commit), target_->handle.get(), GIT_OBJECT_COMMIT) < 0)
        return git_error_clear(), u"HEAD";
    constexpr size_t kDigits = 8;
    return to_wide(git_oid_tostr_s(git_object_id(commit.get()))).substr(0, kDigits);
}

bool Checkout::commit(Tree *tree) {
    const std::u16string message = u"MERGE: " + name_of_target();
    bool saved = true;
    const CommitPtr made(commit_create(zBranchMerge(branch_.get()), u"remote", message.c_str(),
                                       tree, [&] { return saved = index_write(index_.get()); }));
    return made || tell(saved ? u"odb.eFailedToWriteCommit" : u"odb.eFailedToSaveIndex");
}

void Checkout::roll_back() {
    if (transaction_) zTransactionRollback(transaction_.get());
    forget_changes(index_.get());
}

} // namespace zev

bool zRepositoryCheckout(Repository *repository, CheckSpec *spec) try {
    if (!repository) return fail_args();
    const Notify *notify = spec ? zCheckSpecNotify(spec) : nullptr;
    Checkout checkout(repository, notify);
    bool done = false;
    try {
        done = checkout.prepare(spec) && checkout.make_states() && checkout.compare() &&
               (checkout.has_nothing_to_do() || (checkout.walk() && checkout.finish()));
    } catch (...) {
        done = fail_thrown();
    }
    if (checkout.is_canceled()) notify_cancel(notify);
    if (!done) checkout.roll_back();
    return done;
} catch (...) {
    return fail_thrown();
}
