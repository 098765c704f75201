// Checkout, for its own files: the operation's context and its steps.
#pragma once

#include "objects/operations/checkspec.hpp"
#include "objects/store/object.hpp"
#include "objects/trash/trash.hpp"
#include "objects/work/file_mode.hpp"
#include "objects/work/index.hpp"
#include "objects/work/transaction.hpp"
#include "objects/work/work_writer.hpp"
#include "zev/branch.h"
#include "zev/checkout.h"
#include "zev/commit.h"
#include "zev/object.h"
#include "zev/tree.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace zev {

// zRepositoryCheckout as a part of an operation that tells its own end: of a break it says so, and
// tells nobody. `held` has the caller's locks, whose copies expire with the branch's move; null
// where the caller has more to do that it would go back from. With `head` the branch must stand at
// that commit, none of an unborn one, when it begins; at its end it has the one that was made.
bool check_out(Repository *repository, CheckSpec *spec, Transaction *held, bool *canceled,
               std::optional<Oid> *head = nullptr);

// What stands at a path, a link for itself; unseen where nobody can look.
enum class FileState { unseen, missing, directory, file, other };

// What became of one path, in the order of the words that are reported.
enum class Outcome { left_alone, added, updated, deleted, reverted, conflicted, skipped, failed };

// One path on its way. An entry whose mode is 0 stands for none.
struct CheckoutStep {
    std::string path;
    std::u16string wide;
    int32_t status;           // what the target did to it
    bool in_target = true;    // false: added here, and the target knows nothing of it
    git_index_entry base{};   // of the branch's commit
    git_index_entry theirs{}; // of the target
    bool absent = false;      // nothing stood there, and the index knows nothing of it
    git_index_entry *with_path(git_index_entry &entry) {
        entry.path = path.c_str();
        return entry.mode ? &entry : nullptr;
    }
};

class Checkout {
  public:
    Checkout(Repository *repository, const Notify *notify, Transaction *held,
             std::optional<Oid> *head)
        : repository_(repository), notify_(notify), held_(held), head_(head) {}

    // In this order. False ends it; what failed was told.
    bool prepare(const CheckSpec *spec);
    bool make_states();
    bool compare();
    bool walk();
    bool finish();

    void roll_back(); // instead, when one of them failed
    bool is_canceled() const { return canceled_; }

  private:
    enum class State { fresh, prepared, ready, compared, walked, finished, rolled_back };

    void check_state(State expected) const;
    bool enter(State state);
    bool force() const { return zCheckSpecIsOn(spec_.get(), Z_CHECK_FORCE); }
    Failure tell(const zwchar *key, const zwchar *argument = nullptr);

    // ---- Before
    bool take_locks();
    bool find_target();
    bool resolve_base();
    bool is_base(const std::optional<Oid> &tip) const;
    bool drop_unreadable();
    void sort_steps();
    void add_local_steps();
    bool is_in_base(const char *path) const;
    void announce_to_trash();
    bool stage_local_work();
    bool stage(CheckoutStep &step);
    bool has_directory(const CheckoutStep &step);

    // ---- One path
    Outcome apply(CheckoutStep &step);
    Outcome add(CheckoutStep &step);
    Outcome modify(CheckoutStep &step);
    Outcome remove(CheckoutStep &step);
    Outcome force_in(CheckoutStep &step);
    Outcome force_out(CheckoutStep &step);
    void note(CheckoutStep &step, Outcome outcome);

    int32_t local_status(const CheckoutStep &step) const;
    const git_index_entry *staged(const CheckoutStep &step, int stage = 0) const;
    const git_index_entry *entry_of(const CheckoutStep &step) const;
    bool is_in_conflict(const CheckoutStep &step) const;
    bool holds_ours(const CheckoutStep &step) const;
    bool is_hollow(const CheckoutStep &step) const;
    bool is_unchanged(const CheckoutStep &step, struct stat *found = nullptr,
                      bool but_for_rights = false) const;
    bool is_as_base(const CheckoutStep &step, FileState state) const;
    bool is_held_up(const CheckoutStep &step) const;
    bool has_twin(const CheckoutStep &step);
    bool has_conflict_below(const CheckoutStep &step) const;
    FileState state_of(const CheckoutStep &step);
    std::string find_obstacle(const CheckoutStep &step) const;

    void make_way(const CheckoutStep &step, FileState state);
    void make_writable(const CheckoutStep &step);
    bool free_file(const CheckoutStep &step);
    bool can_place(const CheckoutStep &step, FileState state);
    bool ensure_entered(const CheckoutStep &step);
    bool merge(CheckoutStep &step, git_index_entry &both) const;
    bool take(CheckoutStep &step, git_index_entry both);
    Outcome settle(CheckoutStep &step, Outcome agreed);
    bool record_conflict(CheckoutStep &step);
    bool move_to_trash(const CheckoutStep &step);
    bool remove_file(const CheckoutStep &step);
    void prune_emptied();
    bool drop_above(const CheckoutStep &step);

    // ---- After
    TreePtr build_tree();
    std::u16string name_of_target() const;
    bool base_stands() const;
    bool commit(Tree *tree);
    void fit_modes() { zev::fit_modes(index_.get(), zCheckSpecPaths(spec_.get()), rules_.get()); }
    void save_modes();
    void forget(); // what was staged

    Repository *repository_;
    const Notify *notify_;
    Transaction *held_;        // the caller's, may be null
    std::optional<Oid> *head_; // the caller's, where he saw the branch; may be null
    CheckSpecPtr spec_;
    AuthdbPtr rules_; // of the user
    TransactionPtr transaction_;
    Owned<Branch, zBranchFree> branch_;
    Owned<Object, zObjectFree> target_;
    IndexPtr index_;
    TreePtr target_tree_, base_tree_;
    CommitPtr base_commit_;

    State state_ = State::fresh;
    std::vector<CheckoutStep> steps_;
    bool selects_all_ = true; // the steps are all that differs
    std::string directory_;   // asked for last
    bool has_directory_ = true;
    std::unordered_map<std::string, std::u16string> unreadable_; // and why they weren't staged
    std::set<std::string> left_;                                 // skipped or failed
    std::vector<const CheckoutStep *> taken_;       // their target's state goes into the new tree
    bool changed_ = false;                          // something came of a step
    std::set<std::string, std::greater<>> emptied_; // directories, each behind what is below it
    std::optional<std::unordered_set<std::u16string>> own_names_; // folded; not the target's
    std::optional<Stager> stager_;
    std::optional<WorkWriter> writer_;
    std::optional<TrashBatch> trash_;
    std::optional<Oid> moved_to_{}; // its commit, once the branch stands there
    timespec index_time_{};         // of its file: entries that are as young may hide a change
    bool canceled_ = false;
};

} // namespace zev
