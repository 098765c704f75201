// Checkout: brings a working copy from the state of a branch to that of a commit.
//
// It is a merge, file by file: what comes in lands in the work directory unless the user changed
// that file, in which case the index keeps both as a conflict. The branch's own commit is what the
// copy last agreed with; its tree with what came in is committed on it.
#ifndef ZEV_CHECKOUT_H
#define ZEV_CHECKOUT_H

#include "zev/checkspec.h"

ZEV_BEGIN

// A null spec means HEAD to its own commit. Kinds that its paths leave out, as what the target did
// to a file, are left alone. True also when there was nothing to do, and when the user broke off:
// what was done until then is committed, and the break told as canceled.
// What can't be handled is told as skipped, or failed with force, stays as it is, and is not in the
// commit: a file in use, one that the store lacks or the disk has no room for, a name that differs
// from one of ours in case only. On failure, told as an error, branch and index are as before.
ZEV_API bool zRepositoryCheckout(Repository *repository, CheckSpec *spec);

ZEV_END
#endif
