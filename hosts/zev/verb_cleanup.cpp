// cleanup, undo: a working copy put in order, and what a command took brought back.

#include "refs.hpp"
#include "session.hpp"
#include "transfer.hpp"
#include "when.hpp"

namespace host {

namespace {

using OwnedTrashEntry = Owned<TrashEntry, zTrashEntryFree>;

std::vector<std::string> untracked_files(const WorkingCopy &copy) {
    constexpr uint32_t options = 0xFFFF0000u & ~uint32_t{Z_SPEC_NO_UNTRACKED};
    OwnedSpec spec(check(zPathSpecNew(nullptr, options)));
    OwnedStatus list(check(zShellStatus(copy.repository(), spec.get())));
    std::vector<std::string> files;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i)
        files.push_back(narrow(zStatusEntryPath(zStatusListEntry(list.get(), i))));
    return files;
}

uint64_t count_trash(Host &host, const WorkingCopy &copy) {
    Owned<TrashFind, zTrashFindFree> find(
        check(zTrashFindNew(copy.repository(), nullptr, nullptr, false)));
    uint64_t count = 0;
    for (bool more = zTrashFindFirst(find.get()); more; more = zTrashFindNext(find.get())) {
        stop_on_break(host.notify);
        ++count;
    }
    return count;
}

void confirm_purge(Host &host, const std::vector<std::string> &files, uint64_t items) {
    if (files.empty() && !items) return;
    const int32_t answer =
        ask(host.notify,
            {.id = "zev.cleanup.purge",
             .title = "",
             .instruction = "Delete " + std::to_string(files.size()) + " untracked files and " +
                            std::to_string(items) + " items of the trash for good?",
             .content = files.empty() ? "Nothing brings them back." : some_of(files),
             .buttons = {"Delete", "Keep"}});
    if (answer == 1) return;
    if (host.notify->outcome().unanswered)
        throw Failed(kOther, "nothing was deleted; --yes says that it is meant");
    throw Failed(kCanceled, "nothing was deleted");
}

// True when it is back, or was by now. What stands in the way is the library's question.
bool bring_back(Host &host, const WorkingCopy &copy, const TrashEntry *entry) {
    if (zTrashMoveBack(copy.repository(), entry, host.notify)) return true;
    const std::string name = narrow(zTrashEntryName(entry));
    if (zErrorClass() != kExists) fail_raised(name);
    host.out.warn(name + ": stays in the trash: " + narrow(zErrorDetail()));
    return false;
}

} // namespace

int cleanup(Host &host, const CleanupOptions &options) {
    WorkingCopy copy;
    const bool purges = options.purge;
    const auto files = options.keep_untracked ? std::vector<std::string>() : untracked_files(copy);
    if (purges) confirm_purge(host, files, count_trash(host, copy));
    stop_on_break(host.notify);
    Owned<CleanupSpec, zCleanupSpecFree> spec(check(zCleanupSpecNew()));
    check(zCleanupSpecSetOptions(spec.get(),
                                 (options.keep_untracked ? uint32_t{Z_CLEANUP_KEEP_UNTRACKED} : 0) |
                                     (purges ? 0 : uint32_t{Z_CLEANUP_USE_TRASH})));
    check(zCleanupSpecSetNotify(spec.get(), host.notify));
    host.notify->forget();
    const bool done = zRepositoryCleanup(copy.repository(), spec.get());
    if (broken()) throw Failed(kCanceled, "cancelled");
    check(done);
    const Outcome &outcome = host.notify->outcome();
    host.out.record(Record("summary")
                        .set(u"removed", outcome.done)
                        .set(u"failed", outcome.failed)
                        .set(u"purged", purges));
    if (purges) host.out.line("the trash is empty");
    if (!purges && !outcome.done && !outcome.failed) host.out.line("nothing to clear away");
    if (outcome.failed) throw Failed(kOther, "not everything could be removed");
    return kDone;
}

int undo(Host &host) {
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

} // namespace host
