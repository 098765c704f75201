// Update: references, commit and objects come from the server, and the checkout takes them in.
//
// The order in which things reach the disk, for a crash at any point:
//   1. complete copies of index, branch and tracking reference, beside them, as their locks
//   2. what the server sends, into stores that only grow, all of it synced; the tracking reference
//      moves, and with it its log, neither of which names what isn't here
//   3. a commit without what the server has not (rtground.cpp), where there is any
//   4. all that a checkout does, up to the move of the branch
//   5. the copies expire
//   6. the note of how far both agree (standing.hpp)
// A crash before 5 leaves the copies, and recovery puts all three files back. What has come stays,
// and the next update goes on from it.
#include "remote/update_context.hpp"

#include "common/error_class.hpp"
#include "objects/operations/checkout.hpp"
#include "objects/store/branch.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/tree_extent.hpp"
#include "objects/store/tree_pairs.hpp"
#include "objects/work/file_mode.hpp"
#include "remote/rtdownload.hpp"
#include "system/os.hpp"
#include "zev/object.h"
#include "zev/oid.h"
#include "zev/recovery.h"
#include "zev/reference.h"

#include <cerrno>

using namespace zev;

namespace zev {

bool UpdateContext::asked(bool done) {
    if (!done) canceled = remote->request && zRemoteUsrbrk(remote);
    return done;
}

// ---- Preparation

bool recover(Repository *repository, const Notify *notify) {
    int32_t outcome = Z_RECOVERY_NOTHING;
    return zRepositoryRecover(&outcome, repository) ||
           notify_error(notify, u"odb.eUnableToLockWorkingCopy");
}

bool find_branches(Repository *repository, const Notify *notify, BranchPtr &head,
                   BranchPtr &upstream) {
    head.reset(zBranchHead(repository));
    if (!head) return notify_error(notify, u"odb.eUnableToOpenHeadRef");
    upstream.reset(zBranchUpstream(head.get()));
    return upstream || notify_error(notify, u"odb.eUnableToResolveRemoteRef");
}

bool start_transaction(Repository *repository, const Notify *notify, TransactionPtr &transaction) {
    transaction.reset(zTransactionNew(repository));
    return transaction || notify_error(notify, u"odb.eUnableToCreateTransation");
}

bool lock_all(Transaction *transaction, const Notify *notify, const Branch *head,
              const Branch *upstream) {
    if (!zTransactionLockIndex(transaction))
        return notify_error(notify, u"odb.eUnableToLockWorkingCopy");
    for (const Branch *branch : {head, upstream})
        if (const zwchar *name = zBranchMerge(branch); !zTransactionLockRef(transaction, name))
            return notify_error(notify, u"odb.eUnableToLockBranch_s", name);
    return true;
}

bool prepare(UpdateContext &context, const CheckSpec *given) {
    if (!recover(context.repository, context.notify)) return false;
    context.spec.reset(given ? zCheckSpecDup(given) : zCheckSpecNew());
    if (!context.spec || !zCheckSpecSetOn(context.spec.get(), Z_CHECK_NO_LOCKS))
        return context.tell(u"odb.eUnableToResolvePathspec");
    if (!find_branches(context.repository, context.notify, context.head, context.upstream) ||
        !start_transaction(context.repository, context.notify, context.transaction) ||
        !lock_all(context.transaction.get(), context.notify, context.head.get(),
                  context.upstream.get()))
        return false;
    context.tip = tracked_tip(context.repository, context.upstream.get());
    return true;
}

bool verify(UpdateContext &context) {
    return context.asked(zRemoteVerifyRepo(context.remote, context.notify));
}

bool update_rights(UpdateContext &context) {
    return context.asked(zRemoteUpdateAuth(context.remote, context.notify));
}

// ---- Fetching

namespace {

// What is missing here of the files that a spec selects and the user may read.
class Lookout {
  public:
    Lookout(Repository *repository, PathSpec *paths)
        : repository_(repository), paths_(paths), odb_(zOdbOpen(repository)),
          rules_(zAuthdbOpen(repository)) {}

    // Of what a tree has beside the branch's own; null is the empty one.
    bool finds_all(git_tree *base, git_tree *tree) {
        if (!odb_ || !rules_) return false;
        git_odb_refresh(odb_->handle.get());
        const auto look = [this](const std::string &path, auto, auto after) {
            all_ = all_ && has(path, after);
        };
        return TreePairs(repository_->handle.get(), false, look).walk(base, tree) && all_;
    }

  private:
    bool has(const std::string &path, const git_tree_entry *file) {
        if (!file || git_tree_entry_type(file) != GIT_OBJECT_BLOB) return true;
        return is_stored(odb_->handle.get(), git_tree_entry_id(file)) ||
               !spec_matches(paths_, path) ||
               !zAuthdbEntryReadable(rules_.get(), to_wide(path).c_str());
    }

    Repository *repository_;
    PathSpec *paths_;
    OdbPtr odb_;
    AuthdbPtr rules_;
    bool all_ = true;
};

// Whether all is here that a checkout of the tree needs: every tree in which it differs from the
// branch's, selected or not, as far as a listing would have been taken, and the selected files that
// differ and may be read. Then the server need not list it: after a commit of one's own, and where
// an earlier try had come that far. What is here is looked at itself, so that another selection,
// another user or new rights need nothing else to be noticed.
bool is_here(UpdateContext &context, const Oid *tree_id, int32_t type) {
    const KeptFailure kept;
    const TreePtr tree(zTreeByid(context.repository, tree_id));
    if (!tree) return false;
    const TreePtr own(zBranchTree(context.head.get()));
    git_tree *base = own ? own->handle.get() : nullptr;
    if (!has_bounded_change(base, tree->handle.get())) return false;
    return type == Z_OBJECT_TREE ||
           Lookout(context.repository, context.paths()).finds_all(base, tree->handle.get());
}

// A commit that can't be had is told, and left to who needs it. What the user named may be a tag,
// which no branch stands at.
bool fetch_tree(UpdateContext &context, Tip &tip, int32_t type) {
    const CommitPtr commit(zCommitByid(context.repository, &tip.id));
    if (!commit) {
        context.tell(u"odb.eFailedToResolveCommit_s", context.upstream_name());
        return true;
    }
    tip.id = *zCommitId(commit.get());
    const Oid *tree = zCommitTreeId(commit.get());
    return is_here(context, tree, type) ||
           context.asked(zRemoteDownloadMatches(context.remote, tree, type, context.paths()));
}

bool fetch_tip(UpdateContext &context, Tip &tip, int32_t type) {
    return context.asked(
               zRemoteDownloadNested(context.remote, &tip.id, Z_OBJECT_COMMIT, context.notify)) &&
           fetch_tree(context, tip, type);
}

// The server hasn't got the branch, or has lost it: then the next commit there is a first one.
bool untrack(UpdateContext &context) {
    const zwchar *name = context.upstream_name();
    const ReferencePtr tracked(zReferenceLookup(context.repository, name));
    if (tracked) return zReferenceDelete(tracked.get()) || context.tell(kUnmoved, name);
    return zErrorClass() == error_class::kNotFound ||
           context.tell(u"odb.eFailedToResolveRef_s", name);
}

} // namespace

bool fetch_references(UpdateContext &context, std::optional<Tip> &tip) {
    notify_action(context.notify, u"action.sFetchingContent", word(u"action.sPleaseWait"));
    HeldRef held{context.upstream_name()};
    if (!context.asked(download_refs(context.remote, context.notify, &held))) return false;
    context.tip = held.id;
    if (held.id) tip = Tip{held.name, *held.id};
    return held.id || untrack(context);
}

bool track(UpdateContext &context, const Tip &tip, const zwchar *failure) {
    const zwchar *name = tip.name.c_str();
    if (reference_is_at(context.repository, name, tip.id)) return true;
    const zwchar *place = zRepositoryPath(context.repository);
    const bool synced = place && (os::sync_tree(place) || fail_os(errno, place));
    const ReferencePtr moved(synced ? zReferenceCreate(context.repository, name, &tip.id)
                                    : nullptr);
    return moved || context.tell(failure, name);
}

bool fetch(UpdateContext &context, int32_t type) {
    std::optional<Tip> tip;
    const bool was_tracked = context.tip.has_value();
    if (!fetch_references(context, tip)) return false;
    if (!tip && !was_tracked) zNotifyInfo(context.notify, u"%s", word(u"odb.sEmptyUpstream"));
    if (!tip) return context.empty_upstream = true;
    const Oid *target = zCheckSpecTarget(context.spec.get());
    if (target) tip->id = *target;
    if (!fetch_tip(context, *tip, type)) return false;
    context.goal = tip->id;
    const bool goes_on = zOidIsEqual(&tip->id, &*context.tip);
    context.losses = goes_on ? Losses::count : Losses::are_meant;
    return (!goes_on || fetch_history(context, type)) &&
           track(context, *tip, target ? u"odb.eFailedToResolveCommit_s" : kUnmoved);
}

// ---- Ends

void roll_back(Repository *repository, Transaction *transaction, const Branch *head,
               const Branch *upstream, const std::optional<Oid> &own) {
    const KeptFailure kept;
    if (!transaction) return;
    roll_back_all(transaction, own ? &*own : nullptr);
    for (const Branch *branch : {head, upstream}) // that were to be born
        if (branch) drop_begun_log(repository->handle.get(), to_utf8(zBranchMerge(branch)).c_str());
    const IndexPtr index(zIndexHead(repository, false));
    if (index) zIndexRead(index.get(), true);
}

void tell_end(const Notify *notify, bool done, bool canceled) {
    const KeptFailure kept;
    if (canceled)
        notify_cancel(notify);
    else
        done ? notify_done(notify) : notify_abort(notify);
}

// ---- The update

namespace {

bool check_out_upstream(UpdateContext &context) {
    if (context.empty_upstream) return true;
    if (!zCheckSpecSetTarget(context.spec.get(), &*context.goal))
        return context.tell(u"odb.eFailedToResolveCommit_s", context.upstream_name());
    return check_out(context.repository, context.spec.get(), context.transaction.get(),
                     &context.canceled, &context.stand);
}

bool run(UpdateContext &context, const CheckSpec *spec) try {
    return prepare(context, spec) && verify(context) && update_rights(context) &&
           fetch(context, Z_OBJECT_ANY) && lay_ground(context, context.losses) &&
           check_out_upstream(context) && (agree(context), true);
} catch (...) {
    return fail_thrown();
}

} // namespace

bool update_copy(Remote *remote, CheckSpec *spec, bool *canceled) {
    UpdateContext context{remote, spec ? zCheckSpecNotify(spec) : nullptr};
    zNotifyStart(context.notify, word(u"action.sCommand"), word(u"action.sUpdate_s"),
                 zCheckSpecStringfy(spec));
    const bool done = run(context, spec);
    tell_end(context.notify, done, context.canceled);
    if (!done)
        roll_back(context.repository, context.transaction.get(), context.head.get(),
                  context.upstream.get(), context.stand);
    *canceled = context.canceled;
    return done;
}

} // namespace zev

bool zRemoteUpdate(Remote *remote, CheckSpec *spec) try {
    if (!remote) return fail_args();
    bool canceled = false;
    return update_copy(remote, spec, &canceled);
} catch (...) {
    return fail_thrown();
}
