// Notify: how a long operation talks to its host while it runs on the caller's thread. It tells
// its start, each file it handles, its progress and exactly one end (done, cancel or abort), asks
// whether the user wants to stop, and puts questions. The library draws nothing.
//
// A Notify is lent: it outlives the operation and is never freed by the library. Callbacks run
// with the operation's locks held; a second operation on the same working copy, started from one,
// fails as locked.
#ifndef ZEV_NOTIFY_H
#define ZEV_NOTIFY_H

#include "zev/base.h"

ZEV_BEGIN

// The host owns the table and fills what it wants; each callback gets the table first, so that
// a host can place its own data behind it. Texts are good during the call only.
struct Notify {
    void (*start)(const Notify *notify, const zwchar *heading, const zwchar *text);
    void (*done)(const Notify *notify, const zwchar *text);
    void (*cancel)(const Notify *notify, const zwchar *text);
    void (*abort)(const Notify *notify, const zwchar *text);
    void (*info)(const Notify *notify, const zwchar *text);
    void (*warning)(const Notify *notify, const zwchar *text);
    void (*error)(const Notify *notify, const zwchar *text);
    void (*action)(const Notify *notify, const zwchar *word, const zwchar *text);
    void (*progress)(const Notify *notify, const zwchar *text);
    bool (*usrbrk)(const Notify *notify);
    int32_t (*dialog)(const Notify *notify, const TaskDialog *dialog);
};

// A shared, constant table with no slot filled.
ZEV_API const Notify *zNotifyNull(void);

// Empty tables and copies of the eleven slots. New and Dup give what zNotifyFree takes; Init
// empties a table of the caller's.
ZEV_API Notify *zNotifyNew(void);
ZEV_API void zNotifyFree(Notify *notify);
ZEV_API Notify *zNotifyDup(const Notify *notify);
ZEV_API bool zNotifyInit(Notify *notify);
ZEV_API bool zNotifyCopy(Notify *target, const Notify *source);

// What operations call. Texts are formatted as by printf, cut at 511 characters, and made only
// if the slot is filled; without a table or a slot nothing happens. `heading` and `word` are
// finished texts, passed on as they are. The text of a user or a path goes through u"%s".
ZEV_API void zNotifyStart(const Notify *notify, const zwchar *heading, const zwchar *format, ...);
ZEV_API void zNotifyDone(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyCancel(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyAbort(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyInfo(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyWarning(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyError(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyAction(const Notify *notify, const zwchar *word, const zwchar *format, ...);
ZEV_API void zNotifyProgress(const Notify *notify, const zwchar *format, ...);

// Whether the user wants to stop; false without a slot.
ZEV_API bool zNotifyIsUsrbrk(const Notify *notify);

// The id of the button that the user chose, -1 when nobody can be asked: every caller takes an id
// that it doesn't know for "no". 0 with class 2 raised without a dialog.
ZEV_API int32_t zNotifyShowTaskDialog(const Notify *notify, const TaskDialog *dialog);

// A button: an id of 1 or above, its text, and a description or null. Texts are copied, getters
// lend. A smaller id or no text gives null and class 2.
ZEV_API TaskButton *zTaskButtonNew(int32_t id, const zwchar *text, const zwchar *description);
ZEV_API void zTaskButtonFree(TaskButton *button);
ZEV_API int32_t zTaskButtonId(const TaskButton *button);
ZEV_API const zwchar *zTaskButtonText(const TaskButton *button);
ZEV_API const zwchar *zTaskButtonDesc(const TaskButton *button);

// A question. Its id lets a host remember an answer; the meaning of icons is agreed with the
// host. Texts are null until they are set; setters copy.
ZEV_API TaskDialog *zTaskDialogNew(void);
ZEV_API void zTaskDialogFree(TaskDialog *dialog);
ZEV_API const zwchar *zTaskDialogId(const TaskDialog *dialog);
ZEV_API bool zTaskDialogSetId(TaskDialog *dialog, const zwchar *text);
ZEV_API uint32_t zTaskDialogIcon(const TaskDialog *dialog);
ZEV_API bool zTaskDialogSetIcon(TaskDialog *dialog, uint32_t icon);
ZEV_API const zwchar *zTaskDialogTitle(const TaskDialog *dialog);
ZEV_API bool zTaskDialogSetTitle(TaskDialog *dialog, const zwchar *text);
ZEV_API const zwchar *zTaskDialogInstruction(const TaskDialog *dialog);
ZEV_API bool zTaskDialogSetInstruction(TaskDialog *dialog, const zwchar *text);
ZEV_API const zwchar *zTaskDialogContent(const TaskDialog *dialog);
ZEV_API bool zTaskDialogSetContent(TaskDialog *dialog, const zwchar *text);

// The dialog takes the button over, to be freed with it; on failure it stays the caller's. An
// index beyond the last gives null and class 2.
ZEV_API bool zTaskDialogAddButton(TaskDialog *dialog, TaskButton *button);
ZEV_API uint64_t zTaskDialogButtonCount(const TaskDialog *dialog);
ZEV_API TaskButton *zTaskDialogButtonAt(const TaskDialog *dialog, uint64_t index);

ZEV_END
#endif
