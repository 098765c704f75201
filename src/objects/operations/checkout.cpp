// The order in which things reach the disk, for a crash at any point:
//   1. complete copies of index and branch, beside them, as their locks
//   2. files of the work directory, path by path; what they held is in the base's commit, in the
//      store, where it was staged before, or in the trash
//   3. trees and commit, all of it synced; the index, synced too; the reference
//   4. the copies expire, and it is synced again; only then it is told
// A crash before 4 leaves the copies, and recovery puts index and branch back. Files that came in
// until then show as local changes that are equal to the target's. A crash after it leaves what is
// done, although the copies are there until the locks are let go, and may be there again when the
// power failed soon after.
//
// States, and the step that makes each move; a step that fails, whichever, leads to roll_back:
//   fresh -prepare-> prepared      locks are taken, branch and target are found
//         -make_states-> ready     index and target's tree are read
//         -compare-> compared      steps stand; local work is in the store, and in the index
//         -walk-> walked           files, and the index in memory, are as far as they get
//         -finish-> finished       the branch has moved, or nothing had come of it
#include "objects/operations/checkout.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/notify/left.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/strict.hpp"
#include "objects/store/tree.hpp"
#include "objects/work/treebuilder.hpp"
#include "zev/oid.h"
#include "zev/pathspec.h"
#include "zev/reference.h"
#include "zev/repository.h"
#include "zev/status.h"

#include <algorithm>
#include <cassert>
#include <iterator>

using namespace zev;

namespace {

// By Outcome; null is not told.
constexpr const zwchar *kActions[] = {nullptr,
                                      u"action.sAdded",
                                      u"action.sUpdated",
                                      u"action.sDeleted",
                                      u"action.sReverted",
                                      u"action.sConflicted",
                                      u"action.sSkipped",
                                      u"action.sFailed"};
static_assert(std::size(kActions) == static_cast<size_t>(Outcome::failed) + 1);

} // namespace

namespace zev {

void Checkout::check_state([[maybe_unused]] State expected) const {
    assert(state_ == expected);
    assert(state_ < State::prepared || (spec_ && branch_ && transaction_ && target_));
    assert(!base_commit_ == !base_tree_);
    assert(state_ < State::ready || (index_ && target_tree_ && stager_ && writer_));
    assert(state_ < State::compared || trash_ || steps_.empty());
    assert(taken_.size() + left_.size() <= steps_.size());
    assert(emptied_.empty() || state_ == State::compared); // pruned before the walk ends
}

bool Checkout::enter(State state) {
    state_ = state;
    return true;
}

Failure Checkout::tell(const zwchar *key, const zwchar *argument) {
    return notify_error(notify_, key, argument);
}

// ---- Preparing

bool Checkout::prepare(const CheckSpec *spec) {
    check_state(State::fresh);
    if (!zRepositoryWorkdir(repository_)) return tell(u"odb.eUnableToLockWorkingCopy");
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
    rules_.reset(zAuthdbOpen(repository_));
    if (!rules_) return tell(u"sys.eFailedToOpenFile_s", zAuthdbName());
    return take_locks() && find_target() && enter(State::prepared);
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
    if (head_ && !is_base(*head_)) return tell(u"odb.eFailedToWriteCommit");
    const Oid *id = zCheckSpecTarget(spec_.get());
    if (!id && base_commit_) id = zCommitId(base_commit_.get());
    if (id) target_.reset(zObjectByid(repository_, id, Z_OBJECT_ANY));
    if (!id) raise_not_found();
    return target_ || tell(u"odb.eFailedToResolveTree_s", zCheckSpecStringfy(spec_.get()));
}

// A branch that is not born has neither commit nor tree; one that can't be read is a failure.
bool Checkout::resolve_base() {
    const zwchar *reference = zBranchMerge(branch_.get());
    const std::optional<bool> there = reference_there(repository_, reference);
    if (there == false) return true;
    if (there) base_commit_.reset(zCommitByref(repository_, reference));
    if (base_commit_) base_tree_.reset(zCommitTree(base_commit_.get()));
    return base_tree_ || tell(u"odb.eFailedToResolveTree_s", reference);
}

// Git itself doesn't know our locks: what it committed since the caller looked, or since the base
// was read, is in nothing that was found, and would be taken back.
bool Checkout::is_base(const std::optional<Oid> &tip) const {
    const Oid *base = base_commit_ ? zCommitId(base_commit_.get()) : nullptr;
    if (base ? tip && zOidIsEqual(base, &*tip) : !tip) return true;
    return fail_moved();
}

// Under a lock of our own nothing in memory counts that the file doesn't hold: it may be what an
// operation without a lock left.
bool Checkout::make_states() {
    check_state(State::prepared);
    const bool locked = zCheckSpecIsOff(spec_.get(), Z_CHECK_NO_LOCKS);
    index_ = index_of_holder(repository_);
    if (!index_ || (locked && !zIndexRead(index_.get(), true)))
        return tell(u"odb.eUnableToOpenIndex");
    target_tree_.reset(zTreePeel(target_.get()));
    if (!target_tree_) return tell(u"odb.eFailedToResolveTree_s", zCheckSpecStringfy(spec_.get()));
    if (!drop_unreadable()) return false;
    stager_.emplace(index_.get(), notify_);
    writer_.emplace(index_.get());
    writer_->tell(notify_);
    return enter(State::ready);
}

// What the user may not read is not in the target for him, and comes neither into the work
// directory nor into the commit. What fails is told.
bool Checkout::drop_unreadable() {
    if (zAuthdbIsEmpty(rules_.get())) return true;
    const Owned<Vector, zPathListFree> paths(
        zTreeMatch(target_tree_.get(), zCheckSpecPaths(spec_.get())));
    if (!paths) return tell(u"odb.eFailedToParseWorktree");
    std::vector<std::string> hidden;
    for (uint64_t i = 0; i < zPathListLength(paths.get()); ++i)
        if (const zwchar *path = zPathListEntry(paths.get(), i);
            !zAuthdbEntryReadable(rules_.get(), path))
            hidden.push_back(to_utf8(path));
    if (hidden.empty()) return true;
    std::vector<git_tree_update> updates;
    for (const std::string &path : hidden)
        updates.push_back({GIT_TREE_UPDATE_REMOVE, {}, {}, path.c_str()});
    git_oid id;
    const StrictOff partial;
    const int code = git_tree_create_updated(
        &id, repository_->handle.get(), target_tree_->handle.get(), updates.size(), updates.data());
    if (code < 0) return fail_git(code), tell(u"odb.eFailedToBuildTree");
    target_tree_.reset(zTreeByid(repository_, git::oid(&id)));
    return target_tree_ || tell(u"odb.eFailedToBuildTree");
}

// ---- Walking

// The progress is of what is walked. A break keeps what was done.
bool Checkout::walk() {
    check_state(State::compared);
    const int total = static_cast<int>(steps_.size());
    const zwchar *progress = word(u"action.sCheckoutProgress_d_d");
    int count = 0;
    for (CheckoutStep &step : steps_) {
        if (step.status != Z_KIND_DELETED) prune_emptied(); // it may need a directory's name
        note(step, apply(step));
        canceled_ = zNotifyIsUsrbrk(notify_);
        if (canceled_) break;
        zNotifyProgress(notify_, progress, ++count, total);
    }
    prune_emptied();
    return enter(State::walked);
}

// A name that can't come in may stand in both trees: git knows more of them than we do.
Outcome Checkout::apply(CheckoutStep &step) {
    if (!check_path(step.path) || full_path(repository_, step.path).size() >= Z_PATH_MAX - 1) {
        const bool rests = step.status == Z_KIND_UNCHANGED && !local_status(step);
        if (rests) return Outcome::left_alone;
        if (check_path(step.path)) fail_os(ENAMETOOLONG, step.wide);
        return force() ? Outcome::failed : Outcome::skipped;
    }
    if (force()) return step.status == Z_KIND_DELETED ? force_out(step) : force_in(step);
    if (const auto why = unreadable_.find(step.path); why != unreadable_.end())
        return raise_other(why->second.c_str(), step.wide), Outcome::skipped;
    if (step.status == Z_KIND_ADDED) return add(step);
    assert(step.status == Z_KIND_MODIFIED || step.status == Z_KIND_DELETED);
    return step.status == Z_KIND_MODIFIED ? modify(step) : remove(step);
}

void Checkout::note(CheckoutStep &step, Outcome outcome) {
    const bool left = outcome == Outcome::skipped || outcome == Outcome::failed;
    if (left) left_.insert(step.path);
    if (!left && step.in_target) taken_.push_back(&step);
    if (!left && outcome != Outcome::left_alone) changed_ = true;
    const zwchar *key = kActions[static_cast<size_t>(outcome)];
    if (!notify_ || !key) return;
    left ? notify_left(notify_, key, step.wide.c_str())
         : notify_action(notify_, key, step.wide.c_str());
}

// ---- Finishing

// Where a break came before anything was done, or all of it had to be left, no commit tells of it:
// the next time it would be left again, and a line of equal commits grow.
bool Checkout::finish() {
    check_state(State::walked);
    if (steps_.empty() || (!changed_ && (canceled_ || !left_.empty()))) {
        forget();
        save_modes();
        return enter(State::finished);
    }
    const TreePtr tree = build_tree();
    if (!tree) return tell(u"odb.eFailedToBuildTree");
    return commit(tree.get()) && enter(State::finished);
}

// The target's own tree, if all of it was taken; else the base's with what was.
TreePtr Checkout::build_tree() {
    const auto of_target = [](const CheckoutStep &step) { return step.in_target; };
    const auto wanted = static_cast<size_t>(std::ranges::count_if(steps_, of_target));
    if (selects_all_ && taken_.size() == wanted)
        return TreePtr(zTreeByid(repository_, zTreeId(target_tree_.get())));
    const Owned<TreeBuilder, zTreeBuilderFree> builder(
        zTreeBuilderNew(repository_, base_tree_.get()));
    if (!builder) return nullptr;
    const StrictOff partial;
    for (const CheckoutStep *step : taken_) {
        git_index_entry entry = step->theirs;
        entry.path = step->path.c_str();
        const bool done = entry.mode ? index_enter(builder->index.get(), entry)
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

bool Checkout::base_stands() const {
    Oid tip{};
    const std::string name = to_utf8(zBranchMerge(branch_.get()));
    const int code =
        git_reference_name_to_id(git::oid(&tip), repository_->handle.get(), name.c_str());
    if (code < 0 && code != GIT_ENOTFOUND) return fail_git(code);
    return is_base(code < 0 ? std::nullopt : std::optional<Oid>(tip));
}

bool Checkout::commit(Tree *tree) {
    const std::u16string message = u"MERGE: " + name_of_target();
    bool saved = true;
    const auto save = [&] {
        if (!base_stands() || !index_stands(index_.get())) return false;
        fit_modes();
        writer_->settle();
        return saved = index_write_synced(index_.get());
    };
    const auto expire = [&](const Oid &id) {
        moved_to_ = id;
        if (head_) *head_ = id;
        return expire_locks(held_ ? held_ : transaction_.get());
    };
    const CommitPtr made(commit_create(zBranchMerge(branch_.get()), u"remote", message.c_str(),
                                       tree, save, {}, expire));
    if (made) index_committed(index_.get(), zCommitId(made.get()));
    return made || tell(saved ? u"odb.eFailedToWriteCommit" : u"odb.eFailedToSaveIndex");
}

// Why it failed is told: what putting things back raises doesn't take its place. Unless only the
// copies could not expire the branch has not moved yet, and it is another's move that would be
// taken back. Of the index under a caller's locks nothing is written: he puts it back.
void Checkout::roll_back() {
    assert(state_ != State::finished);
    const KeptFailure kept;
    if (moved_to_)
        roll_back_all(transaction_.get(), &*moved_to_);
    else if (index_ && index_->written && !roll_back_index(transaction_.get()))
        log_raised(kWarning);
    const bool locked = spec_ && zCheckSpecIsOff(spec_.get(), Z_CHECK_NO_LOCKS);
    if (index_ && !locked) fit_modes();
    forget();
    if (index_ && locked) save_modes();
    enter(State::rolled_back);
}

// Rights may change where no file does. The index that doesn't have the new times is none the
// worse.
void Checkout::save_modes() {
    const KeptFailure kept;
    fit_modes();
    if (!index_->dirty) return;
    if (!index_stands(index_.get()) || !index_write(index_.get())) forget();
}

// libgit2 has one index for a repository: what was staged and isn't in its file must not show in
// it, nor what was and was put back.
void Checkout::forget() {
    if (index_ && (index_->dirty || index_->written)) zIndexRead(index_.get(), true);
}

bool check_out(Repository *repository, CheckSpec *spec, Transaction *held, bool *canceled,
               std::optional<Oid> *head) try {
    Checkout checkout(repository, spec ? zCheckSpecNotify(spec) : nullptr, held, head);
    bool done = false;
    try {
        done = checkout.prepare(spec) && checkout.make_states() && checkout.compare() &&
               checkout.walk() && checkout.finish();
    } catch (...) {
        done = fail_thrown();
    }
    *canceled = checkout.is_canceled();
    if (!done) checkout.roll_back();
    return done;
} catch (...) {
    return fail_thrown();
}

} // namespace zev

bool zRepositoryCheckout(Repository *repository, CheckSpec *spec) try {
    if (!repository) return fail_args();
    bool canceled = false;
    const bool done = check_out(repository, spec, nullptr, &canceled);
    if (canceled) notify_cancel(spec ? zCheckSpecNotify(spec) : nullptr);
    return done;
} catch (...) {
    return fail_thrown();
}
