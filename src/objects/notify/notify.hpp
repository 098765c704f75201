// Words of the catalogue, as operations hand them to a Notify.
#pragma once

#include "zev/error.h"
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

// A path that failed: the message, by a key that takes the path, goes before the raised reason.
inline void notify_failed(const Notify *notify, const zwchar *key, const zwchar *path) {
    zSetErrorMsg(word(key), path);
    notify_action(notify, u"action.sFailed", zErrorMsg());
}

} // namespace zev
