// cleanup: a working copy put in order.

#include "transfer.hpp"

namespace host {

namespace {

struct Options {
    bool keep_untracked = false;
    bool purge = false; // deletes for good, after a question
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Put a working copy in order");
    verb.footer(
        "Puts right what a crash left, and moves untracked files to the trash; ignored ones\n"
        "stay. --purge deletes them for good, and all that is in the trash; it asks first.\n"
        "Examples:\n  zev cleanup\n  zev cleanup --keep-untracked\n  zev cleanup --purge");
    verb.add_flag("--keep-untracked", options.keep_untracked,
                  "Untracked files stay where they are");
    verb.add_flag("--purge", options.purge, "Delete in place of the trash, and empty it");
}

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
        throw Failed(kCanceled, "nothing was deleted; --yes says that it is meant");
    throw Failed(kCanceled, "nothing was deleted");
}

int run(Host &host, const Options &options) {
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

} // namespace

extern const Verb kCleanupVerb{"cleanup", Group::upkeep, Nature::displaces,
                               bind<Options, declare, run>};

} // namespace host
