// update: what the others have sent comes into the working copy.

#include "forecast.hpp"
#include "incoming.hpp"
#include "verb.hpp"

namespace host {

namespace {

struct Options {
    Paths paths; // none: everything
    std::string revision;
    bool dry = false;
    bool no_drawings = false; // that both sides changed are left as conflicts
};

void declare(Command &verb, Options &options) {
    verb.alias("up");
    verb.description("Bring in what is new on the server");
    verb.footer(
        "Your own changes stay. Where both sides changed a file it becomes a conflict, which\n"
        "\"zev conflicts\" shows and \"zev resolve\" settles. A drawing that both changed comes\n"
        "together object by object, unless both changed the same object; what that displaces is\n"
        "in the trash. A later update without --to comes back to the newest state. When the line\n"
        "breaks the next one goes on from what has come. A revision is one of the server: a\n"
        "commit's first digits, HEAD, a branch, ~N behind it.\n"
        "Examples:\n  zev update\n  zev update plans --dry-run\n  zev update --to HEAD~2");
    verb.add_option("paths", options.paths, "Only these files");
    verb.add_option("--to", options.revision, "To this commit of the server")->type_name("REV");
    verb.add_flag("--dry-run", options.dry, "Only show what would come; nothing changes");
    verb.add_flag("--no-merge-drawings", options.no_drawings,
                  "Leave a drawing that both changed as a conflict");
}

// As an update selects it.
OwnedSpec selection(const Host &host, const WorkingCopy &copy, const Paths &paths) {
    return copy.spec(paths, 0, host.notify);
}

// Without the files that the user may not read.
Entries readable(const WorkingCopy &copy, const DiffList *list) {
    const Owned<Authdb, zAuthdbFree> rules(check(zAuthdbOpen(copy.repository())));
    Entries entries = entries_of(list);
    std::erase_if(entries, [&](const DiffEntry *entry) {
        return !zAuthdbEntryReadable(rules.get(), zDiffEntryNewPath(entry));
    });
    return entries;
}

// What differs between a commit of the server, of which the trees come here, and what the branch
// has in common with it.
OwnedDiff compare(const Host &host, const WorkingCopy &copy, Remote *remote, const Commit *commit,
                  PathSpec *spec) {
    check(zRemoteDownloadMatches(remote, zCommitTreeId(commit), Z_OBJECT_TREE, spec));
    const OwnedTree theirs(check(zCommitTree(commit)));
    const OwnedTree ours(check(zRemoteGround(copy.repository())));
    OwnedDiff list(check(zDiffTreeToTree(ours.get(), theirs.get(), spec, nullptr)));
    stop_on_break(host.notify);
    return list;
}

int foresee(Host &host, const WorkingCopy &copy, const Options &options) {
    const OwnedRemote remote = open_remote(copy);
    check(zRemoteVerifyRepo(remote.get(), host.notify));
    const std::string wanted = options.revision.empty() ? "HEAD" : options.revision;
    std::optional<Oid> id = ask_head(host, remote.get(), followed_branch(copy));
    if (id) id = server_revision(host, copy, remote.get(), wanted);
    if (!id) return host.out.line("the server's project is empty so far"), kDone;
    check(zRemoteDownloadNested(remote.get(), &*id, Z_OBJECT_COMMIT, host.notify));
    const OwnedCommit commit(check(zCommitByid(copy.repository(), &*id)));
    const OwnedSpec spec = selection(host, copy, options.paths);
    const OwnedDiff list = compare(host, copy, remote.get(), commit.get(), spec.get());
    Forecast forecast;
    forecast.here = changed_here(copy);
    const Entries entries = readable(copy, list.get());
    if (!options.no_drawings)
        forecast.meetings = foresee_meetings(host, copy, remote.get(), entries, forecast.here);
    forecast.print(host, entries);
    const uint64_t count = entries.size();
    host.out.line(count ? say("%s would come; nothing was changed", count_of(count, "file"))
                        : say("nothing would come"));
    host.out.record(Record("updates").set(u"files", count));
    return kDone;
}

int run(Host &host, const Options &options) try {
    const WorkingCopy copy;
    if (options.dry) return foresee(host, copy, options);
    std::optional<Oid> target;
    if (!options.revision.empty())
        target = server_revision(host, copy, open_remote(copy).get(), options.revision);
    OwnedSpec spec;
    if (!options.paths.empty()) spec = selection(host, copy, options.paths);
    return take_update(host, copy, "update", target ? &*target : nullptr, spec.get(),
                       !options.no_drawings);
} catch (const Failed &) {
    stop_on_break(host.notify);
    throw;
}

} // namespace

extern const Verb kUpdateVerb{"update", Group::server, Nature::displaces,
                              bind<Options, declare, run>};

} // namespace host
