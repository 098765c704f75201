// updates: what is new on the server, before it comes.

#include "forecast.hpp"
#include "refs.hpp"
#include "server_note.hpp"
#include "show.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    Paths paths; // none: everything
    bool offline = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Show what is new on the server: each file, who changed it and when");
    verb.footer("Of a drawing it says how many of its objects are not as here. Your files stay as\n"
                "they are; \"zev update\" brings the new ones.\n"
                "Examples:\n  zev updates\n  zev updates plans --json\n  zev updates --offline");
    verb.add_option("paths", options.paths, "Only these files");
    verb.add_flag("--offline", options.offline, "Ask nobody; show what was known last");
}

OwnedDiff list_updates(Host &host, const WorkingCopy &copy, const Options &options,
                       Remote *remote) {
    OwnedSpec spec;
    if (!options.paths.empty()) spec = copy.spec(options.paths, 0, host.notify);
    const OwnedSpec all(check(zPathSpecNew(nullptr, 0)));
    check(zPathSpecSetNotify(all.get(), host.notify));
    OwnedDiff list(zRemoteListUpdates(remote, spec ? spec.get() : all.get(), !options.offline));
    if (!list) fail_remote(host, origin_of(copy));
    if (!options.offline) note_answer(copy, nullptr);
    return list;
}

int run(Host &host, const Options &options) {
    const WorkingCopy copy;
    OwnedRemote remote;
    if (options.offline) {
        remote.reset(check(zRemoteOpen(copy.repository()), say("this copy has no server")));
        server_commit(copy); // throws where HEAD follows none of its branches
    } else {
        remote = open_remote(copy);
    }
    const OwnedDiff list = list_updates(host, copy, options, remote.get());
    const Entries entries = entries_of(list.get());
    const uint64_t count = entries.size();
    const OwnedCommit newest = server_commit(copy);
    Forecast forecast;
    if (count && newest) {
        Remote *asked = options.offline ? nullptr : remote.get();
        forecast.last = last_changes(host, copy, asked, newest.get(), entries);
        forecast.objects = count_objects(host, copy, asked, entries);
        forecast.here = changed_here(copy);
        if (!options.offline)
            forecast.meetings = foresee_meetings(host, copy, asked, entries, forecast.here);
    }
    forecast.print(host, entries);
    if (!count)
        host.out.line(newest ? say("nothing is new at %s", short_id(zCommitId(newest.get())))
                             : say("the server's project is empty so far"));
    host.out.record(Record("updates").set(u"files", count));
    return kDone;
}

} // namespace

extern const Verb kUpdatesVerb{"updates", Group::server, Nature::paged,
                               bind<Options, declare, run>};

} // namespace host
