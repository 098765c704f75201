// trash purge: deleted for good.

#include "trash_search.hpp"
#include "when.hpp"

#include <algorithm>

namespace host {

namespace {

struct Options {
    int32_t days = -1; // what is at least that old
    bool all = false;  // or everything
};

void declare(Command &verb, Options &options) {
    verb.description("Delete what was taken, for good");
    verb.footer("It asks first; --yes answers.\n"
                "Examples:\n  zev trash purge --older 90\n"
                "  zev trash purge --all --yes");
    verb.add_option("--older", options.days, "What was taken at least so many days ago")
        ->type_name("DAYS")
        ->nonnegative();
    verb.add_flag("--all", options.all, "Everything");
}

// Nothing goes without a yes.
void confirm(Host &host, const std::string &what) {
    require_yes(host.notify,
                {.id = "zev.trash.purge",
                 .title = "",
                 .instruction = say("Delete %s for good?", what),
                 .content = "Nothing brings back what is deleted here.",
                 .buttons = {"Delete", "Keep"}},
                "nothing was deleted");
}

// How many entries are that old, or with a null limit how many there are.
uint64_t count_older(Host &host, const WorkingCopy &copy, const int64_t *limit) {
    uint64_t count = 0;
    search(host, copy.repository(), nullptr, false, [&](const TrashEntry *entry) {
        count += !limit || zTrashEntryDTime(entry)->seconds <= *limit;
    });
    return count;
}

int run(Host &host, const Options &options) {
    if (options.all == (options.days >= 0))
        throw Failed(kInvalid, "give the age in days, --older DAYS, or --all");
    WorkingCopy copy;
    Time now{};
    check(zTimeGlobal(&now));
    const int64_t oldest = now.seconds - options.days * kSecondsPerDay;
    const int64_t *limit = options.all ? nullptr : &oldest;
    const uint64_t count = count_older(host, copy, limit);
    if (count) {
        confirm(host, say("%s of the trash", plural(count, "item")));
        check(options.all ? zTrashCleanup(copy.repository())
                          : zTrashPurge(copy.repository(), options.days));
    }
    const uint64_t left = count ? count_older(host, copy, limit) : 0;
    host.out.line(say("%s deleted", plural(count - std::min(count, left), "item")));
    host.out.record(
        Record("summary").set(u"deleted", count - std::min(count, left)).set(u"left", left));
    if (left) host.out.warn(say("%s can't be deleted", plural(left, "item")));
    return left ? kFailed : kDone;
}

} // namespace

extern const Verb kTrashPurgeVerb{"trash purge", Group::rescue, Nature::changes,
                                  bind<Options, declare, run>};

} // namespace host
