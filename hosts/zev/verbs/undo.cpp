// undo: what the last command put into the trash, brought back; then what the one before did.

#include "merge_state.hpp"
#include "session.hpp"
#include "when.hpp"

#include <algorithm>

namespace host {

namespace {

struct Options {
    bool list = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Bring back what the last command put into the trash");
    verb.footer(
        "The last one of rm, revert, import, resolve, switch, merge, update and cleanup that put\n"
        "anything there; given again, the one before it, up to twenty. What has the name by now\n"
        "stays unless you say otherwise. --list shows the commands, the next to be undone first.\n"
        "Examples:\n  zev rm plans && zev undo\n  zev undo --list");
    verb.add_flag("--list", options.list, "Show what there is to undo, and undo nothing");
}

using OwnedTrashEntry = Owned<TrashEntry, zTrashEntryFree>;

// True when it is back, or was by now. What stands in the way is the library's question.
bool bring_back(Host &host, const WorkingCopy &copy, const TrashEntry *entry) {
    if (zTrashMoveBack(copy.repository(), entry, host.notify)) return true;
    const std::string name = narrow(zTrashEntryName(entry));
    if (zErrorClass() != kExists) fail_raised(name);
    const std::string reason = narrow(zErrorDetail());
    host.out.fail(Failed(kExists, say("%s: stays in the trash: %s", name, reason)), kBroken);
    return false;
}

int list(Host &host, Journal journal) {
    std::reverse(journal.begin(), journal.end());
    if (journal.empty()) host.out.line("no command put anything into the trash");
    for (const JournalEntry &entry : journal) {
        host.out.line(short_time(entry.seconds) + "  " + padded(entry.verb, 10) +
                      plural(entry.count, "item") + (entry.undone ? ", " + say("undone") : ""));
        host.out.record(Record("command")
                            .set(u"verb", entry.verb)
                            .set(u"time", iso_time(entry.seconds))
                            .set(u"seconds", entry.seconds)
                            .set(u"items", entry.count)
                            .set(u"undone", entry.undone));
    }
    return kDone;
}

// While it was undone, others may have come behind it, so that it has another place. What is left
// there is undone by the same command again, with an answer.
void note(const WorkingCopy &copy, const JournalEntry &done, const std::vector<std::string> &left) {
    change_journal(copy, [&](Journal &journal) {
        for (JournalEntry &entry : journal)
            if (entry.seconds == done.seconds && entry.slots == done.slots) {
                entry.slots = left;
                entry.undone = left.empty();
            }
    });
}

int undo(Host &host, const WorkingCopy &copy, const JournalEntry &last) {
    host.out.line(say("undoing \"zev %s\" of %s", last.verb, short_time(last.seconds)));
    host.out.record(Record("undo")
                        .set(u"verb", last.verb)
                        .set(u"time", iso_time(last.seconds))
                        .set(u"seconds", last.seconds));
    host.notify->from_trash();
    uint64_t restored = 0;
    std::vector<std::string> left;
    for (auto slot = last.slots.rbegin(); slot != last.slots.rend(); ++slot) {
        stop_on_break(host.notify);
        OwnedTrashEntry entry(zTrashEntryDiscover(copy.repository(), wide(*slot).c_str()));
        if (!entry) {
            host.out.warn(say("%s: is no longer in the trash", *slot));
        } else if (bring_back(host, copy, entry.get())) {
            ++restored;
        } else {
            left.insert(left.begin(), *slot);
        }
    }
    note(copy, last, left);
    host.out.line(say("%s restored", restored));
    if (restored && unsettled_merge(copy))
        host.out.warn("a merge is under way, and what is back has nothing of the other branch; "
                      "\"zev merge --abort\" takes the merge back");
    host.out.record(
        Record("summary").set(u"restored", restored).set(u"left", uint64_t{left.size()}));
    if (!left.empty()) return kBroken; // a question was declined
    return restored == last.slots.size() ? kDone : kFailed;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    Journal journal = read_journal(copy);
    if (options.list) return list(host, std::move(journal));
    const auto last = std::find_if(journal.rbegin(), journal.rend(), [](const JournalEntry &entry) {
        return !entry.undone && !entry.slots.empty();
    });
    if (last == journal.rend())
        throw Failed(kNotFound, "nothing to undo: no command put anything into the trash since; "
                                "\"zev trash list\" shows what is there");
    return undo(host, copy, *last);
}

} // namespace

extern const Verb kUndoVerb{"undo", Group::upkeep, Nature::changes, bind<Options, declare, run>};

} // namespace host
