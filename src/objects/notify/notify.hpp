// What operations tell a Notify: words of the catalogue, and their failures.
#pragma once

#include "common/failure.hpp"
#include "zev/lang.h"
#include "zev/notify.h"

namespace zev {

// The current catalogue's text of a key, the key itself where it has none. Lent until the
// catalogue changes.
inline const zwchar *word(const zwchar *key) {
    const zwchar *text = zI18nTextLookup(zI18nCurrentLang(), key);
    return text ? text : key;
}

// The usual ends of an operation. Text of a user or of a path is never a format.
inline void notify_start(const Notify *notify, const zwchar *operation) {
    zNotifyStart(notify, word(u"action.sCommand"), u"%s", word(operation));
}
inline void notify_done(const Notify *notify) { zNotifyDone(notify, u"%s", word(u"action.sDone")); }
inline void notify_cancel(const Notify *notify) {
    zNotifyCancel(notify, u"%s", word(u"action.sCanceled"));
}
inline void notify_abort(const Notify *notify) {
    zNotifyAbort(notify, u"%s", word(u"action.sAborted"));
}
inline void notify_action(const Notify *notify, const zwchar *key, const zwchar *path) {
    zNotifyAction(notify, word(key), u"%s", path);
}

// What was raised gets the message of `key`, a format where `argument` is given, and the host is
// told that message: the reason stays in the record, where it may be of no use to a user. Right
// after the call that failed, since a message goes before the last reason, whoever raised it.
Failure notify_error(const Notify *notify, const zwchar *key, const zwchar *argument = nullptr);
// The same of a path among others, which `key` takes: as its action.
void notify_failed(const Notify *notify, const zwchar *key, const zwchar *path);
// For a failure whose message is its own: message and reason as they were raised.
Failure notify_raised(const Notify *notify);
// What a peer did, a code and its reason, under the message of `key`: raised, logged, told.
Failure notify_net(const Notify *notify, int32_t code, const zwchar *reason, const zwchar *key,
                   Here at = {});

} // namespace zev
