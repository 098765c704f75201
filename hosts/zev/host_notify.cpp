// The library calls these from within its own frames: nothing may throw through them, and the
// user's break is a flag that operations ask for.
#include "host_notify.hpp"

#include "copy.hpp"
#include "terminal.hpp"
#include "width.hpp"

#include <algorithm>
#include <charconv>
#include <csignal>

namespace host {

namespace {

constexpr int32_t kNobody = -1; // the answer that every operation takes for "no"
// A question that comes again and again, such as whether to try once more, is answered by an
// option so often.
constexpr unsigned kMaxRepeats = 10;

volatile sig_atomic_t user_break = 0;

// Words of the library come in the user's language; programs get the name of the key.
constexpr struct {
    const zwchar *key;
    const char *name;
    Colour colour;
} kActions[] = {
    {u"action.sAdded", "added", Colour::green},
    {u"action.sDeleted", "deleted", Colour::red},
    {u"action.sModified", "modified", Colour::yellow},
    {u"action.sUpdated", "updated", Colour::yellow},
    {u"action.sReverted", "reverted", Colour::yellow},
    {u"action.sRestored", "restored", Colour::green},
    {u"action.sResolved", "resolved", Colour::green},
    {u"action.sConflicted", "conflicted", Colour::red},
    {u"action.sSkipped", "skipped", Colour::dim},
    {u"action.sFailed", "failed", Colour::red},
    {u"action.sUnauthorized", "unauthorized", Colour::red},
};

const auto *find_action(const zwchar *word) {
    for (const auto &action : kActions)
        if (zStrsameW(word, zI18nTextLookup(zI18nCurrentLang(), action.key))) return &action;
    return static_cast<decltype(&kActions[0])>(nullptr);
}

// ---- Buttons

struct Button {
    int32_t id;
    std::string text, description;
};

std::vector<Button> buttons_of(const TaskDialog *dialog) {
    std::vector<Button> buttons;
    for (uint64_t i = 0; i < zTaskDialogButtonCount(dialog); ++i) {
        const TaskButton *button = zTaskDialogButtonAt(dialog, i);
        buttons.push_back({zTaskButtonId(button), narrow(zTaskButtonText(button)),
                           narrow(zTaskButtonDesc(button))});
    }
    return buttons;
}

bool same_text(const std::string &a, const std::string &b) {
    return zStrcasesameW(wide(a).c_str(), wide(b).c_str());
}

// By number or text.
int32_t named(const std::vector<Button> &buttons, const std::string &name) {
    int32_t id = 0;
    const char *end = name.data() + name.size();
    const auto [after, error] = std::from_chars(name.data(), end, id);
    const bool number = error == std::errc() && after == end;
    for (const Button &button : buttons)
        if (number ? button.id == id : same_text(button.text, name)) return button.id;
    return kNobody;
}

// What the user typed: also as little of a text as only one button has.
int32_t typed(const std::vector<Button> &buttons, const std::string &line) {
    int32_t id = named(buttons, line), count = 0;
    if (id != kNobody || line.empty()) return id;
    for (const Button &button : buttons)
        if (same_text(button.text.substr(0, line.size()), line)) ++count, id = button.id;
    return count == 1 ? id : kNobody;
}

// Of two buttons one is yes: by these words, the user's or the English ones, as far as they begin
// no button's text.
constexpr const char *kYesNo[] = {"yes", "no"};

// What Enter stands for: the last button that takes no step, else the last one at all.
const Button &safe_button(const std::vector<Button> &buttons) {
    for (auto button = buttons.rbegin(); button != buttons.rend(); ++button)
        for (const zwchar *key : {u"buttons.cancel", u"buttons.skip"})
            if (button->text == narrow(zI18nTextLookup(zI18nCurrentLang(), key))) return *button;
    return buttons.back();
}

std::string first_letter(const std::string &text) {
    std::string_view rest = text;
    if (!rest.empty()) take(rest);
    return text.substr(0, text.size() - rest.size());
}

// The button that yes or no stands for; kNobody where it is no such question.
int32_t meant_by(const std::vector<Button> &buttons, bool yes) {
    if (buttons.size() != 2) return kNobody;
    const int32_t safe = safe_button(buttons).id;
    const int32_t other = buttons[0].id == safe ? buttons[1].id : buttons[0].id;
    return yes ? other : safe;
}

// Also yes and no, in full or by their letters.
int32_t chosen(const std::vector<Button> &buttons, const std::string &line) {
    if (int32_t id = typed(buttons, line); id != kNobody || line.empty()) return id;
    for (const char *word : kYesNo)
        for (const std::string &known : {say(word), std::string(word)})
            if (same_text(known.substr(0, line.size()), line))
                return meant_by(buttons, word == kYesNo[0]);
    return kNobody;
}

// What may be typed for a button in place of its number: "G, y".
std::string letters_of(const std::vector<Button> &buttons, const Button &button) {
    std::vector<std::string> letters{first_letter(button.text)};
    if (letters[0].empty() || typed(buttons, letters[0]) != button.id) letters.clear();
    for (const char *word : kYesNo)
        for (const std::string &known : {say(word), std::string(word)})
            if (const std::string letter = first_letter(known);
                chosen(buttons, letter) == button.id &&
                std::none_of(letters.begin(), letters.end(),
                             [&](const std::string &other) { return same_text(other, letter); }))
                letters.push_back(letter);
    std::string text;
    for (const std::string &letter : letters) text += (text.empty() ? "" : ", ") + letter;
    return text;
}

// ---- The question as text

std::vector<std::string> texts_of(const TaskDialog *dialog) {
    std::vector<std::string> texts;
    for (const zwchar *text :
         {zTaskDialogTitle(dialog), zTaskDialogInstruction(dialog), zTaskDialogContent(dialog)})
        if (text && *text) texts.push_back(narrow(text));
    return texts;
}

int32_t ask_on(const Terminal &terminal, const TaskDialog *dialog,
               const std::vector<Button> &buttons) {
    std::string shown = "\n";
    for (const std::string &text : texts_of(dialog)) shown += visible(text, "\n") + "\n";
    const Button &safe = safe_button(buttons);
    for (const Button &button : buttons) {
        const std::string letters = letters_of(buttons, button);
        shown += "  " + padded(std::to_string(button.id) + ")", 3) + visible(button.text);
        if (!button.description.empty()) shown += "  " + visible(button.description);
        if (!letters.empty()) shown += "  [" + letters + "]";
        shown += button.id == safe.id ? "  [" + say("Enter") + "]\n" : "\n";
    }
    terminal.write(shown);
    for (;;) {
        terminal.write(say("Your choice, by number or letter:") + " ");
        const std::optional<std::string> line = terminal.read_line();
        if (!line) return terminal.write("\n"), kNobody;
        if (trimmed(*line).empty()) return safe.id;
        if (int32_t id = chosen(buttons, trimmed(*line)); id != kNobody) return id;
    }
}

Record record_of(const TaskDialog *dialog, const std::vector<Button> &buttons, int32_t answer) {
    std::vector<Record> members;
    for (const Button &button : buttons)
        members.push_back(std::move(Record().set(u"id", button.id).set(u"text", button.text)));
    Record record("question");
    record.set(u"id", zTaskDialogId(dialog)).set(u"title", zTaskDialogTitle(dialog));
    record.set(u"instruction", zTaskDialogInstruction(dialog));
    record.set(u"content", zTaskDialogContent(dialog)).set(u"buttons", std::move(members));
    record.set(u"answer", answer);
    return record;
}

std::string unanswered(const TaskDialog *dialog, const std::vector<Button> &buttons) {
    std::string text, choice;
    for (const std::string &part : texts_of(dialog)) text += (text.empty() ? "" : " ") + part;
    std::replace(text.begin(), text.end(), '\n', ' ');
    for (const Button &button : buttons)
        choice += (button.id == buttons.front().id ? "" : ", ") + button.text;
    return say("%s (%s?) Nobody could answer, which counts as no; --yes, --no and --answer do it",
               text, choice);
}

// Why a path was left: the library's record has it while that is told, if its message is the text.
std::string why_left(const zwchar *text) {
    return zStrsameW(zErrorMsg(), text) ? narrow(zErrorReason()) : "";
}

// What the library says without a catalogue.
constexpr const char *kProgress[] = {"verifying object %s", "verifying table %s"};

constexpr size_t kActionColumn = 11; // columns at least

// Of the words that a file is told with, those that are not the library's.
constexpr const char *kOwnActions[] = {"Added",  "In trash", "Kept",
                                       "Merged", "Renamed",  "Unstaged"};

} // namespace

std::string action_column(const std::string &word) {
    static const size_t widest = [] {
        size_t width = 0;
        for (const auto &action : kActions)
            if (std::string_view(action.name) != "unauthorized") // long, and seldom
                width = std::max(width,
                                 columns(narrow(zI18nTextLookup(zI18nCurrentLang(), action.key))));
        for (const char *own : kOwnActions) width = std::max(width, columns(say(own)));
        return width;
    }();
    return padded(word, std::max(widest + 1, kActionColumn));
}

std::string conflict_column(const Output &output) {
    const zwchar *word = zI18nTextLookup(zI18nCurrentLang(), u"action.sConflicted");
    return output.paint(Colour::red, action_column(narrow(word)));
}

void catch_break() {
    struct sigaction action {};
    action.sa_handler = [](int) { user_break = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

bool broken() { return user_break != 0; }

HostNotify::HostNotify(Output &output, Answers answers)
    : Notify{}, output_(output), answers_(std::move(answers)) {
    start = [](const Notify *table, const zwchar *heading, const zwchar *text) {
        Output &out = of(table).output_;
        out.progress(narrow(text) + " ...");
        out.record(Record("start").set(u"heading", heading).set(u"text", text));
    };
    done = [](const Notify *table, const zwchar *text) { of(table).on_end("done", text); };
    cancel = [](const Notify *table, const zwchar *text) { of(table).on_end("cancelled", text); };
    abort = [](const Notify *table, const zwchar *text) { of(table).on_end("aborted", text); };
    warning = [](const Notify *table, const zwchar *text) {
        if (of(table).warned_.insert(narrow(text)).second) of(table).output_.warn(narrow(text));
    };
    error = [](const Notify *table, const zwchar *text) { of(table).output_.reason(narrow(text)); };
    info = [](const Notify *table, const zwchar *text) {
        Output &out = of(table).output_;
        out.line(narrow(text));
        out.record(Record("info").set(u"message", text));
    };
    action = [](const Notify *table, const zwchar *word, const zwchar *text) {
        of(table).on_action(word, text);
    };
    progress = [](const Notify *table, const zwchar *text) {
        const HostNotify &self = of(table);
        if (self.output_.progress_due())
            self.output_.progress(retold(narrow(text), kProgress) +
                                  (self.tail_ ? self.tail_() : ""));
    };
    usrbrk = [](const Notify *table) { return broken() || of(table).output_.unread(); };
    dialog = [](const Notify *table, const TaskDialog *question) {
        return of(table).on_dialog(question);
    };
}

const HostNotify &HostNotify::of(const Notify *table) {
    return *static_cast<const HostNotify *>(table);
}

// That contents are being fetched is no action on a file.
void HostNotify::on_action(const zwchar *word, const zwchar *text) const {
    if (zStrsameW(word, zI18nTextLookup(zI18nCurrentLang(), u"action.sFetchingContent")))
        return output_.progress(narrow(word) + " ...");
    if (from_trash_ && zStrsameW(word, zI18nTextLookup(zI18nCurrentLang(), u"action.sReverted")))
        word = zI18nTextLookup(zI18nCurrentLang(), u"action.sRestored");
    const auto *known = find_action(word);
    const std::string name = known ? known->name : narrow(word);
    const bool failed = name == "failed"; // its text is a message
    const std::string why = failed || name == "skipped" ? why_left(text) : "";
    uint64_t &count = failed                   ? outcome_.failed
                      : name == "skipped"      ? outcome_.skipped
                      : name == "unauthorized" ? outcome_.unauthorized
                                               : outcome_.done;
    ++count;
    outcome_.listed += &count == &outcome_.done;
    if (output_.json()) {
        Record record("action");
        record.set(u"action", name).set(failed ? u"message" : u"path", shown_path(text));
        if (!why.empty()) record.set(u"reason", why);
        return output_.record(record);
    }
    if (holds_drawings_ && name == "conflicted" && is_drawing_name(narrow(text)))
        return held_.push_back(narrow(text));
    output_.line(output_.paint(known ? known->colour : Colour::plain, action_column(narrow(word))) +
                 (failed ? narrow(text) : typed_path(text)) + (why.empty() ? "" : ": " + why));
}

void HostNotify::let_drawings_go() const {
    holds_drawings_ = false;
    for (const std::string &path : std::exchange(held_, {}))
        output_.line(conflict_column(output_) + typed_path(path));
}

void HostNotify::on_end(const char *result, const zwchar *text) const {
    if (std::string_view(result) == "done")
        outcome_.listed = 0;
    else
        outcome_.aborted = true;
    output_.clear_progress();
    output_.record(Record("end").set(u"result", result).set(u"text", text));
}

int32_t HostNotify::on_dialog(const TaskDialog *dialog) const {
    const std::vector<Button> buttons = buttons_of(dialog);
    const int32_t chosen = answer(dialog);
    outcome_.declined |= !outcome_.unanswered && !buttons.empty() &&
                         (chosen == kNobody || chosen == safe_button(buttons).id);
    output_.record(record_of(dialog, buttons, chosen));
    return chosen;
}

// Options come first; programs that read JSON are not asked on the terminal.
int32_t HostNotify::answer(const TaskDialog *dialog) const {
    const std::vector<Button> buttons = buttons_of(dialog);
    std::string question;
    for (const std::string &text : texts_of(dialog)) question += text + '\n';
    repeats_ = question == last_question_ ? repeats_ + 1 : 0;
    last_question_ = question;
    if (answers_.no || buttons.empty()) return kNobody;
    if (repeats_ < kMaxRepeats) {
        for (const std::string &name : answers_.buttons)
            for (const std::string &known : {name, said(name)})
                if (int32_t id = named(buttons, known); id != kNobody) return id;
        if (answers_.yes) return buttons.front().id;
    }
    output_.clear_progress();
    if (!output_.json() && !broken())
        if (const Terminal terminal; terminal) return ask_on(terminal, dialog, buttons);
    outcome_.unanswered = true;
    if (!output_.json()) output_.warn(unanswered(dialog, buttons));
    return kNobody;
}

int32_t ask(const Notify *notify, const Question &question) {
    Owned<TaskDialog, zTaskDialogFree> dialog(check(zTaskDialogNew()));
    check(zTaskDialogSetId(dialog.get(), wide(question.id).c_str()));
    check(zTaskDialogSetTitle(dialog.get(), wide(said(question.title)).c_str()));
    check(zTaskDialogSetInstruction(dialog.get(), wide(said(question.instruction)).c_str()));
    check(zTaskDialogSetContent(dialog.get(), wide(said(question.content)).c_str()));
    int32_t id = 0;
    for (const std::string &text : question.buttons) {
        Owned<TaskButton, zTaskButtonFree> button(
            check(zTaskButtonNew(++id, wide(said(text)).c_str(), nullptr)));
        check(zTaskDialogAddButton(dialog.get(), button.get()));
        button.release();
    }
    return zNotifyShowTaskDialog(notify, dialog.get());
}

void require_yes(const HostNotify *notify, const Question &question, const std::string &otherwise,
                 const std::string &option) {
    if (ask(notify, question) == 1) return;
    const std::string stays = said(otherwise);
    throw Failed(kCanceled, notify->outcome().unanswered ? stays + "; " + said(option) : stays);
}

} // namespace host
