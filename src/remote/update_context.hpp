// What an update, a list of updates and a reset share: the locks, the branch and the one that
// tracks the server's, and how what the selection needs is fetched. A commit takes its locks here,
// too.
#pragma once

#include "objects/operations/checkspec.hpp"
#include "objects/store/branch.hpp"
#include "objects/store/object.hpp"
#include "objects/store/reference.hpp"
#include "objects/work/transaction.hpp"
#include "remote/remote.hpp"
#include "remote/standing.hpp"

#include <optional>
#include <string>

namespace zev {

struct UpdateContext {
    Remote *remote;
    const Notify *notify;
    Repository *repository = remote->owner;
    CheckSpecPtr spec{}; // a copy of the caller's, or a new one
    TransactionPtr transaction{};
    BranchPtr head{}, upstream{};
    bool empty_upstream = false; // the server has no commit yet
    bool canceled = false;

    // The server's branch, as it is tracked, and then as it is listed. What the user named instead,
    // or the same: a commit; none before it is fetched.
    ServerTip tip{};
    std::optional<Oid> goal{};
    Losses losses = Losses::count;
    // Commits of the branch: the one that the checkout goes out from, of which the server has all,
    // and where the operation left it. Whatever else it stands at is not ours.
    std::optional<Oid> ground{}, stand{};
    bool is_history_known = true; // else the server's branch may have gone back
    bool goes_to_own = false;     // the goal is a commit that the server never got
    bool told_unsent = false;

    const zwchar *upstream_name() const { return zBranchMerge(upstream.get()); }
    PathSpec *paths() { return zCheckSpecPaths(spec.get()); }
    // The failure of a request may be a break of the user's. Gives what it got.
    bool asked(bool done);
    Failure tell(const zwchar *key, const zwchar *argument = nullptr) const {
        return notify_error(notify, key, argument);
    }
};

// The update that another operation is built on. Told with its own start and end; `canceled` says
// that the user broke off: the result is true where the files had come that far, and stay.
bool update_copy(Remote *remote, CheckSpec *spec, bool *canceled);

// ---- Steps. What fails is told, but for a break. Each may throw.

// Puts back what a process left that died, finds both branches and takes the locks.
bool prepare(UpdateContext &context, const CheckSpec *given);

// The server is the one of this copy.
bool verify(UpdateContext &context);
// The user's rights, as the server has them now.
bool update_rights(UpdateContext &context);

// Where the tracking reference is to stand, and its name; none where it isn't to be.
struct Tip {
    std::u16string name;
    Oid id{};
};

// The server's references, all but the tracking one. `tip` is where the server has that. Where it
// hasn't got it, none, and what was tracked is tracked no more.
bool fetch_references(UpdateContext &context, std::optional<Tip> &tip);

// The tracking reference moves, behind what it names: all that was fetched is on the disk.
inline constexpr const zwchar *kUnmoved = u"odb.eFailedToUpdateRef_s";
bool track(UpdateContext &context, const Tip &tip, const zwchar *failure = kUnmoved);

// What it takes to tell whether the server's branch went on from where the copy came to: commits
// between, and of one that went back what the ground takes from before, selected or not: trees, and
// by `type` files. Commits that can't be had leave it unknown.
bool fetch_history(UpdateContext &context, int32_t type);

// References, the commit, what of its tree has `type`, of files those that are selected, and the
// history, unless the user names a state himself. An empty upstream is a success.
bool fetch(UpdateContext &context, int32_t type);

// The branch gets a commit without what the server has not, if there is any: that is told, and a
// change of the user's from then on, of which index and files know as ever.
bool lay_ground(UpdateContext &context, Losses losses);
void tell_standing(const UpdateContext &context, const Standing &standing);

// Notes how far branch and server agree now.
void agree(UpdateContext &context);

// Asks the host whether to break off, and tells it nothing.
struct Quiet : Notify {
    const Notify *host;

    explicit Quiet(const Notify *from) : Notify{}, host(from) {
        usrbrk = [](const Notify *self) {
            return zNotifyIsUsrbrk(static_cast<const Quiet *>(self)->host);
        };
    }
};

// ---- Parts of them

// A process that died left its locks: first of all, since ours replace them.
bool recover(Repository *repository, const Notify *notify);
// The branch and the one that tracks the server's; index and both, locked in this order.
bool find_branches(Repository *repository, const Notify *notify, BranchPtr &head,
                   BranchPtr &upstream);
bool start_transaction(Repository *repository, const Notify *notify, TransactionPtr &transaction);
bool lock_all(Transaction *transaction, const Notify *notify, const Branch *head,
              const Branch *upstream);

// Index and branches are as they were locked, in memory too; the record stays what it was. Where
// somebody moved the branch, and it stands at no commit of ours, what tracks the server alone.
void roll_back(Repository *repository, Transaction *transaction, const Branch *head,
               const Branch *upstream, const std::optional<Oid> &own);

// How an operation ends: exactly one of the three is told.
void tell_end(const Notify *notify, bool done, bool canceled);

} // namespace zev
