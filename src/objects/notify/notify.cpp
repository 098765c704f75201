// The wrappers of a host's table, each silent where the host has no slot for it, and how the
// failure of an operation gets its message. A text is formatted for a slot that is there only.
#include "objects/notify/notify.hpp"

#include "common/format.hpp"
#include "objects/notify/left.hpp"

#include <cstdarg>
#include <cstdlib>

namespace {

constexpr Notify kNull{};

// A formatted text of at most 511 units and its zero: what doesn't fit is cut.
class Text {
  public:
    Text(const zwchar *format, va_list arguments) {
        if (format) zev::format_wide(text_, kSize - 1, format, arguments);
    }
    operator const zwchar *() const { return text_; }

  private:
    static constexpr size_t kSize = 512;
    zwchar text_[kSize] = {};
};

} // namespace

const Notify *zNotifyNull(void) { return &kNull; }

Notify *zNotifyNew(void) {
    auto *notify = static_cast<Notify *>(calloc(1, sizeof(Notify)));
    return notify ? notify : zev::fail_memory();
}

void zNotifyFree(Notify *notify) { free(notify); }

Notify *zNotifyDup(const Notify *notify) {
    if (!notify) return zev::fail_args();
    Notify *copy = zNotifyNew();
    if (copy) *copy = *notify;
    return copy;
}

bool zNotifyInit(Notify *notify) {
    if (!notify) return zev::fail_args();
    *notify = kNull;
    return true;
}

bool zNotifyCopy(Notify *target, const Notify *source) {
    if (!target || !source) return zev::fail_args();
    *target = *source;
    return true;
}

void zNotifyStart(const Notify *notify, const zwchar *heading, const zwchar *format, ...) {
    if (!notify || !notify->start) return;
    va_list arguments;
    va_start(arguments, format);
    notify->start(notify, heading, Text(format, arguments));
    va_end(arguments);
}

void zNotifyDone(const Notify *notify, const zwchar *format, ...) {
    if (!notify || !notify->done) return;
    va_list arguments;
    va_start(arguments, format);
    notify->done(notify, Text(format, arguments));
    va_end(arguments);
}

void zNotifyCancel(const Notify *notify, const zwchar *format, ...) {
    if (!notify || !notify->cancel) return;
    va_list arguments;
    va_start(arguments, format);
    notify->cancel(notify, Text(format, arguments));
    va_end(arguments);
}

void zNotifyAbort(const Notify *notify, const zwchar *format, ...) {
    if (!notify || !notify->abort) return;
    va_list arguments;
    va_start(arguments, format);
    notify->abort(notify, Text(format, arguments));
    va_end(arguments);
}

void zNotifyInfo(const Notify *notify, const zwchar *format, ...) {
    if (!notify || !notify->info) return;
    va_list arguments;
    va_start(arguments, format);
    notify->info(notify, Text(format, arguments));
    va_end(arguments);
}

void zNotifyWarning(const Notify *notify, const zwchar *format, ...) {
    if (!notify || !notify->warning) return;
    va_list arguments;
    va_start(arguments, format);
    notify->warning(notify, Text(format, arguments));
    va_end(arguments);
}

void zNotifyError(const Notify *notify, const zwchar *format, ...) {
    if (!notify || !notify->error) return;
    va_list arguments;
    va_start(arguments, format);
    notify->error(notify, Text(format, arguments));
    va_end(arguments);
}

void zNotifyAction(const Notify *notify, const zwchar *word, const zwchar *format, ...) {
    if (!notify || !notify->action) return;
    va_list arguments;
    va_start(arguments, format);
    notify->action(notify, word, Text(format, arguments));
    va_end(arguments);
}

void zNotifyProgress(const Notify *notify, const zwchar *format, ...) {
    if (!notify || !notify->progress) return;
    va_list arguments;
    va_start(arguments, format);
    notify->progress(notify, Text(format, arguments));
    va_end(arguments);
}

bool zNotifyIsUsrbrk(const Notify *notify) {
    return notify && notify->usrbrk && notify->usrbrk(notify);
}

int32_t zNotifyShowTaskDialog(const Notify *notify, const TaskDialog *dialog) {
    if (!dialog) return zev::fail_args(), 0;
    return notify && notify->dialog ? notify->dialog(notify, dialog) : -1;
}

namespace zev {

namespace {

const zwchar *set_message(const zwchar *key, const zwchar *argument) {
    return argument ? zSetErrorMsg(word(key), argument) : zSetErrorMsg(u"%s", word(key));
}

} // namespace

// In each of them the record is raised anew at the end: a log line may have composed its detail
// before the message came, and the host's slot may have raised something else.

Failure notify_error(const Notify *notify, const zwchar *key, const zwchar *argument) {
    const zwchar *message = set_message(key, argument);
    const KeptFailure kept;
    zNotifyError(notify, u"%s", message);
    return {};
}

void notify_failed(const Notify *notify, const zwchar *key, const zwchar *path) {
    notify_left(notify, u"action.sFailed", set_message(key, path));
}

Failure notify_raised(const Notify *notify) {
    const KeptFailure kept;
    zNotifyError(notify, u"%s", zErrorDetail());
    return {};
}

Failure notify_net(const Notify *notify, int32_t code, const zwchar *reason, const zwchar *key,
                   Here at) {
    raise_net(code, reason);
    zSetErrorMsg(u"%s", word(key));
    fail_raised(at);
    return notify_raised(notify);
}

} // namespace zev
