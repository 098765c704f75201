// The library's own questions, with their texts from the catalogue. Each gives the button's id; -1
// when nobody can be asked, which like any other id that isn't named here means "no".
#pragma once

#include "zev/notify.h"

namespace zev {

// Something can't be deleted.
enum { kRetry = 1, kRetrySkip = 2, kRetryCancel = 3 };
int32_t ask_retry_or_skip(const Notify *notify, const zwchar *path);

// A file stands where a directory is needed.
enum { kDelete = 1, kDeleteSkip = 2 };
int32_t ask_skip_or_delete(const Notify *notify, const zwchar *file, const zwchar *directory);

// The directory has an item of that name.
enum { kReplace = 1, kReplaceSkip = 2, kRename = 3 };
int32_t ask_skip_or_replace(const Notify *notify, const zwchar *name, const zwchar *directory);

// The place of a new working copy is taken.
enum { kCheckoutRetry = 1, kCheckoutForce = 2, kCheckoutCancel = 3 };
int32_t ask_force_checkout(const Notify *notify, const zwchar *path);

// A reset meets changes that are not committed. They are listed in a text of the caller's, with the
// words of this place of the catalogue.
inline constexpr const zwchar *kForceRevertKey = u"dialog.forceRevert";
enum { kRevertForce = 1, kRevertSafe = 2, kRevertCancel = 3 };
int32_t ask_force_revert(const Notify *notify, const zwchar *changes);

} // namespace zev
