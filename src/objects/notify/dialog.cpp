// Questions to the user, as records that a host shows in its own way.
#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/notify.h"
#include "zev/str.h"
#include "zev/vector.h"

#include <memory>
#include <new>

struct TaskButton {
    int32_t id; // 1 and above
    zev::Wide text;
    zev::Wide description; // may be null
};

struct TaskDialog {
    zev::Wide id;
    zev::Wide title;
    zev::Wide instruction;
    zev::Wide content;
    uint32_t icon;
    zev::Owned<Vector, zVectorFree> buttons; // owns them
};

namespace {

using namespace zev;

const zwchar *text_of(const TaskDialog *dialog, Wide TaskDialog::*field, Here at = {}) {
    if (!dialog) return fail_args(at);
    return (dialog->*field).get();
}

bool set_text(TaskDialog *dialog, Wide TaskDialog::*field, const zwchar *text, Here at = {}) {
    if (!dialog || !text) return fail_args(at);
    Wide copy(zStrdupW(text)); // first, the text may be the old one
    if (!copy) return false;
    dialog->*field = std::move(copy);
    return true;
}

void release_button(void *button) { zTaskButtonFree(static_cast<TaskButton *>(button)); }

} // namespace

TaskButton *zTaskButtonNew(int32_t id, const zwchar *text, const zwchar *description) {
    if (id < 1 || !text) return fail_args();
    std::unique_ptr<TaskButton> button(new (std::nothrow) TaskButton{});
    if (!button) return fail_memory();
    button->id = id;
    button->text.reset(zStrdupW(text));
    if (description) button->description.reset(zStrdupW(description));
    if (!button->text || (description && !button->description)) return nullptr;
    return button.release();
}

void zTaskButtonFree(TaskButton *button) { delete button; }

int32_t zTaskButtonId(const TaskButton *button) {
    if (!button) return fail_args(), 0;
    return button->id;
}

const zwchar *zTaskButtonText(const TaskButton *button) {
    if (!button) return fail_args();
    return button->text.get();
}

const zwchar *zTaskButtonDesc(const TaskButton *button) {
    if (!button) return fail_args();
    return button->description.get();
}

TaskDialog *zTaskDialogNew(void) {
    std::unique_ptr<TaskDialog> dialog(new (std::nothrow) TaskDialog{});
    if (!dialog) return fail_memory();
    dialog->buttons.reset(zVectorNewPtr(0, nullptr, release_button));
    return dialog->buttons ? dialog.release() : nullptr;
}

void zTaskDialogFree(TaskDialog *dialog) { delete dialog; }

const zwchar *zTaskDialogId(const TaskDialog *dialog) { return text_of(dialog, &TaskDialog::id); }

bool zTaskDialogSetId(TaskDialog *dialog, const zwchar *text) {
    return set_text(dialog, &TaskDialog::id, text);
}

uint32_t zTaskDialogIcon(const TaskDialog *dialog) {
    if (!dialog) return fail_args(), 0;
    return dialog->icon;
}

bool zTaskDialogSetIcon(TaskDialog *dialog, uint32_t icon) {
    if (!dialog) return fail_args();
    dialog->icon = icon;
    return true;
}

const zwchar *zTaskDialogTitle(const TaskDialog *dialog) {
    return text_of(dialog, &TaskDialog::title);
}

bool zTaskDialogSetTitle(TaskDialog *dialog, const zwchar *text) {
    return set_text(dialog, &TaskDialog::title, text);
}

const zwchar *zTaskDialogInstruction(const TaskDialog *dialog) {
    return text_of(dialog, &TaskDialog::instruction);
}

bool zTaskDialogSetInstruction(TaskDialog *dialog, const zwchar *text) {
    return set_text(dialog, &TaskDialog::instruction, text);
}

const zwchar *zTaskDialogContent(const TaskDialog *dialog) {
    return text_of(dialog, &TaskDialog::content);
}

bool zTaskDialogSetContent(TaskDialog *dialog, const zwchar *text) {
    return set_text(dialog, &TaskDialog::content, text);
}

bool zTaskDialogAddButton(TaskDialog *dialog, TaskButton *button) {
    if (!dialog || !button) return fail_args();
    return zVectorPush(dialog->buttons.get(), button);
}

uint64_t zTaskDialogButtonCount(const TaskDialog *dialog) {
    if (!dialog) return fail_args(), 0;
    return zVectorSize(dialog->buttons.get());
}

TaskButton *zTaskDialogButtonAt(const TaskDialog *dialog, uint64_t index) {
    if (!dialog) return fail_args();
    TaskButton *button = nullptr;
    return zVectorAt(dialog->buttons.get(), index, &button) ? button : nullptr;
}
