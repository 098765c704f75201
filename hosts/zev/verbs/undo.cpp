// undo: what the last command put into the trash, brought back.

#include "session.hpp"
#include "when.hpp"

namespace host {

namespace {

struct Options {};

void declare(CLI::App &verb, Options &) {
    verb.description("Bring back what the last command put into the trash");
    verb.footer(
        "The last one of rm, revert, import, resolve, switch, merge and cleanup that put anything\n"
        "there. What has the name by now stays unless you say otherwise.\n"
        "Example:\n  zev rm plans && zev undo");
}

using OwnedTrashEntry = Owned<TrashEntry, zTrashEntryFree>;

// True when it is back, or was by now. What stands in the way is the library's question.
bool bring_back(Host &host, const WorkingCopy &copy, const TrashEntry *entry) {
    if (zTrashMoveBack(copy.repository(), entry, host.notify)) return true;
    const std::string name = narrow(zTrashEntryName(entry));
    if (zErrorClass() != kExists) fail_raised(name);
    host.out.warn(name + ": stays in the trash: " + narrow(zErrorDetail()));
    return false;
}

int run(Host &host, const Options &) {
    WorkingCopy copy;
    const std::optional<Journal> journal = read_journal(copy);
    if (!journal || journal->slots.empty())
        throw Failed(kNotFound, "nothing to undo: no command put anything into the trash since; "
                                "\"zev trash list\" shows what is there");
    host.out.line("undoing \"zev " + journal->verb + "\" of " + short_time(journal->seconds));
    host.out.record(Record("undo")
                        .set(u"verb", journal->verb)
                        .set(u"time", iso_time(journal->seconds))
                        .set(u"seconds", journal->seconds));
    host.notify->from_trash();
    uint64_t restored = 0;
    std::vector<std::string> left; // to be undone again, with an answer
    for (auto slot = journal->slots.rbegin(); slot != journal->slots.rend(); ++slot) {
        stop_on_break(host.notify);
        OwnedTrashEntry entry(zTrashEntryDiscover(copy.repository(), wide(*slot).c_str()));
        if (!entry) {
            host.out.warn(*slot + ": is no longer in the trash");
        } else if (bring_back(host, copy, entry.get())) {
            ++restored;
        } else {
            left.insert(left.begin(), *slot);
        }
    }
    write_journal(copy, {journal->verb, journal->seconds, left});
    host.out.line(std::to_string(restored) + " restored");
    host.out.record(
        Record("summary").set(u"restored", restored).set(u"left", uint64_t{left.size()}));
    return restored == journal->slots.size() ? kDone : kFailed;
}

} // namespace

extern const Verb kUndoVerb{"undo", Group::upkeep, Nature::changes, bind<Options, declare, run>};

} // namespace host
