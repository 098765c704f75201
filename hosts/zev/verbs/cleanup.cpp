// cleanup: a working copy put in order.

#include "transfer.hpp"

namespace host {

namespace {

struct Options {
    bool untracked = false;
    bool keep_untracked = false; // as without any; from when they went by default
    bool purge = false;          // deletes for good, after a question
};

void declare(Command &verb, Options &options) {
    verb.description("Put a working copy in order");
    verb.footer("Puts right what a crash left. --untracked moves untracked files to the trash,\n"
                "ignored ones stay. --purge deletes for good what is in the trash, and with\n"
                "--untracked these files, too. Both ask first.\n"
                "Examples:\n  zev cleanup\n  zev cleanup --untracked\n  zev cleanup --purge");
    const Argument untracked =
        verb.add_flag("--untracked", options.untracked, "Move untracked files to the trash");
    verb.add_flag("--keep-untracked", options.keep_untracked, "Untracked files stay, as they do")
        ->excludes(untracked)
        ->hidden();
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

void confirm(Host &host, const Options &options, const std::vector<std::string> &files,
             uint64_t items) {
    if (files.empty() && !items) return;
    std::string what = files.empty() ? "" : plural(files.size(), "untracked file");
    const std::string trashed = say("%s of the trash", plural(items, "item"));
    if (items) what = what.empty() ? trashed : say("%s and %s", what, trashed);
    if (options.purge)
        require_yes(host.notify,
                    {.id = "zev.cleanup.purge",
                     .title = "",
                     .instruction = say("Delete %s for good?", what),
                     .content = files.empty() ? "Nothing brings them back." : some_of(files),
                     .buttons = {"Delete", "Keep"}},
                    "nothing was deleted");
    else
        require_yes(host.notify,
                    {.id = "zev.cleanup.untracked",
                     .title = "",
                     .instruction = say("Move %s to the trash?", what),
                     .content = some_of(files),
                     .buttons = {"Move", "Keep"}},
                    "nothing was moved");
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const bool purges = options.purge;
    const auto files = options.untracked ? untracked_files(copy) : std::vector<std::string>();
    if (purges || options.untracked)
        confirm(host, options, files, purges ? count_trash(host, copy) : 0);
    stop_on_break(host.notify);
    Owned<CleanupSpec, zCleanupSpecFree> spec(check(zCleanupSpecNew()));
    check(zCleanupSpecSetOptions(spec.get(),
                                 (options.untracked ? 0 : uint32_t{Z_CLEANUP_KEEP_UNTRACKED}) |
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
    if (!purges && !outcome.done && !outcome.failed)
        host.out.line(options.untracked ? "nothing to clear away" : "the working copy is in order");
    if (outcome.failed) throw Failed(kOther, "not everything could be removed");
    return kDone;
}

} // namespace

extern const Verb kCleanupVerb{"cleanup", Group::upkeep, Nature::displaces,
                               bind<Options, declare, run>};

} // namespace host
