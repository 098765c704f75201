// The questions that operations put to the user, each built from its place in the catalogue, shown
// once and freed. Where nobody can be asked the answer is -1, which every caller takes as a no.
#include "objects/notify/dialogs.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/lang.h"
#include "zev/str.h"

namespace zev {

namespace {

// A question as the catalogue has it: a text whose key ends in "_s" takes an argument.
struct Question {
    const zwchar *key; // of its subtree
    const zwchar *id;  // by which a host remembers an answer
    const zwchar *instruction;
    const zwchar *buttons[3];             // ids 1, 2, 3
    const zwchar *content = u"content_s"; // null: the caller's text as it is
};

constexpr uint32_t kIcon = 3;

constexpr Question kRetryOrSkip = {u"dialog.retryOrSkip",
                                   u"{A95B82F4-D6F8-4CA9-A411-9FC6C67EF8BD}",
                                   u"instruction",
                                   {u"buttons.retry", u"buttons.skip", u"buttons.cancel"}};
constexpr Question kSkipOrDelete = {u"dialog.skipOrDelete",
                                    u"{9DA7439E-FCC6-47B7-BB2C-0B2B8CCC68DD}",
                                    u"instruction_s",
                                    {u"buttons.delete", u"buttons.skip", nullptr}};
constexpr Question kSkipOrReplace = {u"dialog.skipOrReplace",
                                     u"{01287D15-2846-4174-9674-5C18F6C9A029}",
                                     u"instruction_s",
                                     {u"buttons.replace", u"buttons.skip", u"buttons.rename"}};

constexpr Question kForceCheckout = {u"dialog.forceCheckout",
                                     u"{4670FC7D-DBAB-4A28-89E1-5845B0B25D26}",
                                     u"instruction",
                                     {u"buttons.retry", u"buttons.force", u"buttons.cancel"}};
constexpr Question kForceRevert = {kForceRevertKey,
                                   u"{2A97D5AD-BC1A-40E8-BB15-B8BEC1AB3D58}",
                                   u"instruction",
                                   {u"buttons.force", u"buttons.safe", u"buttons.cancel"},
                                   nullptr};

using Dialog = Owned<TaskDialog, zTaskDialogFree>;

// A dialog's own words come before those that all share.
const zwchar *button_text(Json *subtree, const zwchar *key) {
    if (subtree && zI18nNodeExists(subtree, key)) return zI18nTextLookup(subtree, key);
    return zI18nTextLookup(zI18nCurrentLang(), key);
}

// Null for a text that takes no argument.
const zwchar *text_of(Json *subtree, const zwchar *key, const zwchar *argument) {
    if (!subtree) return key;
    return argument ? zI18nTextFormat(subtree, key, argument) : zI18nTextLookup(subtree, key);
}

bool add_buttons(TaskDialog *dialog, Json *subtree, const Question &question) {
    for (int32_t id = 1; id <= 3 && question.buttons[id - 1]; ++id) {
        const zwchar *text = button_text(subtree, question.buttons[id - 1]);
        Owned<TaskButton, zTaskButtonFree> button(zTaskButtonNew(id, text, nullptr));
        if (!button || !zTaskDialogAddButton(dialog, button.get())) return false;
        static_cast<void>(button.release());
    }
    return true;
}

Dialog make(const Question &question, const zwchar *instruction, const zwchar *content) {
    Json *subtree = zI18nNodeLookup(zI18nCurrentLang(), question.key);
    Dialog dialog(zTaskDialogNew());
    TaskDialog *made = dialog.get();
    const bool done =
        made && zTaskDialogSetId(made, question.id) && zTaskDialogSetIcon(made, kIcon) &&
        zTaskDialogSetTitle(made, text_of(subtree, u"title", nullptr)) &&
        zTaskDialogSetInstruction(made, text_of(subtree, question.instruction, instruction)) &&
        zTaskDialogSetContent(made, question.content ? text_of(subtree, question.content, content)
                                                     : content) &&
        add_buttons(made, subtree, question);
    return done ? std::move(dialog) : nullptr;
}

int32_t ask(const Notify *notify, const Question &question, const zwchar *instruction,
            const zwchar *content) {
    if (!notify || !notify->dialog) return -1;
    const Dialog dialog = make(question, instruction, content);
    return dialog ? zNotifyShowTaskDialog(notify, dialog.get()) : -1;
}

} // namespace

int32_t ask_retry_or_skip(const Notify *notify, const zwchar *path) {
    return ask(notify, kRetryOrSkip, nullptr, path);
}

int32_t ask_skip_or_delete(const Notify *notify, const zwchar *file, const zwchar *directory) {
    return ask(notify, kSkipOrDelete, file, directory);
}

int32_t ask_skip_or_replace(const Notify *notify, const zwchar *name, const zwchar *directory) {
    return ask(notify, kSkipOrReplace, name, directory);
}

int32_t ask_force_checkout(const Notify *notify, const zwchar *path) {
    return ask(notify, kForceCheckout, nullptr, path);
}

int32_t ask_force_revert(const Notify *notify, const zwchar *changes) {
    return ask(notify, kForceRevert, nullptr, changes);
}

} // namespace zev
