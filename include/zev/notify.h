// Notify: how a long operation talks to its host; questions and their buttons.
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

ZEV_API const Notify *zNotifyNull(void);
ZEV_API Notify *zNotifyNew(void);
ZEV_API void zNotifyFree(Notify *notify);
ZEV_API Notify *zNotifyDup(const Notify *notify);
ZEV_API bool zNotifyInit(Notify *notify);
ZEV_API bool zNotifyCopy(Notify *target, const Notify *source);
ZEV_API void zNotifyStart(const Notify *notify, const zwchar *heading, const zwchar *format, ...);
ZEV_API void zNotifyDone(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyCancel(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyAbort(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyInfo(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyWarning(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyError(const Notify *notify, const zwchar *format, ...);
ZEV_API void zNotifyAction(const Notify *notify, const zwchar *word, const zwchar *format, ...);
ZEV_API void zNotifyProgress(const Notify *notify, const zwchar *format, ...);
ZEV_API bool zNotifyIsUsrbrk(const Notify *notify);
ZEV_API int32_t zNotifyShowTaskDialog(const Notify *notify, const TaskDialog *dialog);

ZEV_API TaskButton *zTaskButtonNew(int32_t id, const zwchar *text, const zwchar *description);
ZEV_API void zTaskButtonFree(TaskButton *button);
ZEV_API int32_t zTaskButtonId(const TaskButton *button);
ZEV_API const zwchar *zTaskButtonText(const TaskButton *button);
ZEV_API const zwchar *zTaskButtonDesc(const TaskButton *button);
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
ZEV_API bool zTaskDialogAddButton(TaskDialog *dialog, TaskButton *button);
ZEV_API uint64_t zTaskDialogButtonCount(const TaskDialog *dialog);
ZEV_API TaskButton *zTaskDialogButtonAt(const TaskDialog *dialog, uint64_t index);

ZEV_END
#endif
