#include "notify.hpp"

#include <algorithm>
#include <csignal>

namespace host {

namespace {

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

} // namespace

void catch_break() {
    struct sigaction action {};
    action.sa_handler = [](int) { user_break = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

bool broken() { return user_break != 0; }

HostNotify::HostNotify(Output &output) : Notify{}, output_(output) {
    warning = [](const Notify *table, const zwchar *text) {
        HostNotify::output(table).warn(narrow(text));
    };
    error = warning;
    info = [](const Notify *table, const zwchar *text) {
        Output &out = HostNotify::output(table);
        out.line(narrow(text));
        out.record(Record("info").set(u"message", text));
    };
    action = on_action;
    progress = [](const Notify *table, const zwchar *text) {
        HostNotify::output(table).progress(narrow(text));
    };
    usrbrk = [](const Notify *) { return broken(); };
}

Output &HostNotify::output(const Notify *table) {
    return static_cast<const HostNotify *>(table)->output_;
}

void HostNotify::on_action(const Notify *table, const zwchar *word, const zwchar *text) {
    Output &out = output(table);
    const auto *known = find_action(word);
    std::string path = shown_path(text);
    if (out.json())
        return out.record(
            Record("action").set(u"action", known ? known->name : narrow(word)).set(u"path", path));
    std::string shown = narrow(word);
    shown.resize(std::max<size_t>(shown.size(), 10), ' ');
    out.line(out.paint(known ? known->colour : Colour::plain, shown) + " " + path);
}

} // namespace host
