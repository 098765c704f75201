// Paths that an operation leaves as they are.
#pragma once

#include "objects/notify/notify.hpp"

namespace zev {

// One that is skipped, or has failed. Why was raised: while a host is told, the record's
// message is what it is told, and the reason is in the user's words.
void notify_left(const Notify *notify, const zwchar *key, const zwchar *path);
inline void notify_skipped(const Notify *notify, const zwchar *path) {
    notify_left(notify, u"action.sSkipped", path);
}

} // namespace zev
