// Transaction: locks on the files that an operation changes together (the index, the branch, its
// upstream), taken in this order before any of them changes. Each keeps its file as it was, for a
// rollback, or for a recovery when the process died.
#ifndef ZEV_TRANSACTION_H
#define ZEV_TRANSACTION_H

#include "zev/base.h"

ZEV_BEGIN

// The repository is lent. Free lets all locks go: after a rollback the files are as they were, else
// what was changed stays. Behind a rollback that failed the saved copies stay, for a recovery.
ZEV_API Transaction *zTransactionNew(Repository *repository);
ZEV_API void zTransactionFree(Transaction *transaction);

// Lock and save. A file that another has locked fails after half a second, class 7. References go
// by their full name, refs/heads/master; they need not exist, and one that is no such name is
// class 2.
ZEV_API bool zTransactionLockIndex(Transaction *transaction);
ZEV_API bool zTransactionLockRef(Transaction *transaction, const zwchar *reference);

// Puts all files back, in the order in which they were locked, up to the first that fails. The
// locks stay.
ZEV_API bool zTransactionRollback(Transaction *transaction);

// Puts index, HEAD and references back as far as a process that died left complete copies of them.
// These stay; what has to go on from the files purges them. Where somebody has committed since on
// one of the branches nothing is put back, and the log says so; true all the same.
ZEV_API bool zTransactionRecover(Repository *repository);

ZEV_END
#endif
