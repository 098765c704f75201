// reset: files as they were at an older state of the server, as changes of the user's own.

#include "front.hpp"
#include "reception.hpp"
#include "refs.hpp"
#include "server_note.hpp"
#include "show.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    std::string revision;
    Paths paths; // none: everything
};

void declare(Command &verb, Options &options) {
    verb.description("Make files as they were at an older state of the server");
    verb.footer(
        "They are changes of yours then, as if you had made them: \"zev commit\" sends them, "
        "\"zev\n"
        "update\" and \"zev revert\" are as ever. Nothing is rewritten on the server. Changes of\n"
        "yours that aren't committed are asked about; what is overwritten goes to the trash.\n"
        "Examples:\n  zev reset HEAD~1\n  zev reset 1a2b3c4d plans/ground.dwx");
    verb.add_option("revision", options.revision, "A commit of the server")
        ->type_name("REV")
        ->required();
    verb.add_option("paths", options.paths, "Only these files");
}

int run(Host &host, const Options &options) {
    const WorkingCopy copy;
    const OwnedRemote remote = open_remote(copy);
    const Oid target = server_revision(host, copy, remote.get(), options.revision);
    OwnedSpec paths;
    if (!options.paths.empty()) paths = copy.spec(options.paths, 0, host.notify);
    const Owned<CheckSpec, zCheckSpecFree> spec(check(zCheckSpecByid(&target, paths.get())));
    check(zCheckSpecSetNotify(spec.get(), host.notify));
    Reception reception(host, own_directory(copy), "reset", copy.born());
    host.notify->forget();
    if (!zRemoteReset(remote.get(), spec.get())) {
        reception.fail();
        if (zErrorClass() == kCanceled && !broken() && !host.notify->outcome().unanswered)
            throw Failed(kCanceled, "nothing was changed");
        fail_remote(host, origin_of(copy));
    }
    require_done(host, "the reset");
    reception.finish();
    note_answer(copy, nullptr);
    const uint64_t files = host.notify->outcome().done;
    host.out.line(say(
        files == 1 ? "%s file is as in %s; \"zev status\" shows what \"zev commit\" would send"
                   : "%s files are as in %s; \"zev status\" shows what \"zev commit\" would send",
        grouped(files), short_id(&target)));
    host.out.record(Record("reset").set(u"commit", &target).set(u"files", files));
    return kDone;
}

} // namespace

extern const Verb kResetVerb{"reset", Group::server, Nature::displaces,
                             bind<Options, declare, run>};

} // namespace host
