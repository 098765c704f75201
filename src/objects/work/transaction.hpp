// What a crash left locked.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/oid.h"
#include "zev/transaction.h"

#include <string>
#include <vector>

namespace zev {

using TransactionPtr = Owned<Transaction, zTransactionFree>;

// Puts the index back, if it is locked, and leaves the references to whoever moved them.
bool roll_back_index(Transaction *transaction);

// Puts all back, and goes on behind what can't be: that is logged, and the copies stay for recovery
// when the transaction ends. Git doesn't know our locks: where a branch stands neither where it was
// locked nor at `own`, the commit that the caller made of it, null for none, somebody has gone on
// from it, and it stays as he left it, with the index.
void roll_back_all(Transaction *transaction, const Oid *own);

// Whether a reference, by its full name, stands where it was when it was locked.
bool is_as_locked(const Transaction *transaction, const zwchar *reference);
// For a branch that git moved while an operation was at work: its failure, as of libgit2.
Failure fail_moved();

// Once all is done, before it is synced: from now on only we can go back. What a crash leaves of
// the locks, and a loss of power brings back of them, takes nothing back. Where that fails recovery
// may take it back all the same: it is not done.
bool expire_locks(Transaction *transaction);

// The files among index, HEAD and references beside which a lock file stands, be it held or left.
// May throw.
std::vector<std::u16string> left_locked(Repository *repository);

// The full name of the reference that has its file there, below the directory that all worktrees
// share; empty of index and HEAD. May throw.
std::string reference_of(const Repository *repository, const std::u16string &target);

// Whether a file is what the lock file beside it keeps, or that keeps nothing. May throw.
bool is_put_back(const Repository *repository, const std::u16string &target);

// Deletes the copy of a reference (HEAD means its branch) that a process left which died: before
// the reference moves, so that no recovery takes it back. One that is held stays. May throw.
void drop_left_copy(Repository *repository, const zwchar *reference);

} // namespace zev
