// branch: names of lines of work.

#include "detached.hpp"
#include "graph.hpp"
#include "refs.hpp"
#include "show.hpp"
#include "when.hpp"

namespace host {

namespace {

struct Options {
    std::string name; // empty: list them
    std::string revision;
    bool remove = false;
};

void declare(Command &verb, Options &options) {
    verb.description("List, make and delete branches");
    verb.footer(
        "Without a name all are listed, the current one marked. Deleting asks first when no\n"
        "other branch has what is on this one.\n"
        "Examples:\n  zev branch\n  zev branch details HEAD~1\n  zev branch --delete details");
    verb.add_option("name", options.name, "The branch to make, or to delete");
    const Argument start =
        verb.add_option("revision", options.revision, "Where it begins; else at HEAD");
    start->type_name("REV");
    verb.add_flag("--delete", options.remove, "Delete it")->excludes(start);
}

using OwnedReference = Owned<Reference, zReferenceFree>;

int list(Host &host, const WorkingCopy &copy) {
    const std::string current = current_branch(copy);
    auto branches = all_references(copy);
    tell_detached(host, copy);
    std::erase_if(branches, [](const auto &item) { return !item.first.starts_with(kHeads); });
    size_t longest = 0;
    for (const auto &[name, id] : branches)
        longest = std::max(longest, name.size() - kHeads.size());
    if (branches.empty() && !current.empty())
        host.out.line(say("there are no commits yet; HEAD is %s", current));
    for (const auto &[name, id] : branches) {
        const std::string shown = name.substr(kHeads.size());
        const OwnedCommit tip(zCommitByid(copy.repository(), &id));
        const std::string message = tip ? clean(narrow(zCommitMessage(tip.get()))) : "";
        host.out.line((name == current ? "* " : "  ") +
                      host.out.paint(name == current ? Colour::green : Colour::plain,
                                     padded(shown, longest + 2)) +
                      host.out.paint(Colour::yellow, short_id(&id)) + "  " + first_line(message));
        Record record("branch");
        record.set(u"name", shown).set(u"current", name == current).set(u"id", &id);
        if (tip) {
            record.set(u"author", narrow(zCommitAuthor(tip.get()))).set(u"message", message);
            record.set(u"time", iso_time(seconds_of(tip.get())));
        }
        host.out.record(record);
    }
    return kDone;
}

void confirm_loss(Host &host, const std::string &name, const Oid &tip) {
    require_yes(host.notify,
                {.id = "zev.branch.delete",
                 .title = "",
                 .instruction = say("Delete branch %s?", name),
                 .content = say("No other branch has its last commit %s, and nothing names it any "
                                "more then.",
                                short_id(&tip)),
                 .buttons = {"Delete", "Keep"}},
                "the branch stays");
}

void require_not_current(const WorkingCopy &copy, const std::string &name) {
    if (full_branch(name) == current_branch(copy))
        throw Failed(kInvalid, say("%s: is the current branch; switch to another one first", name));
}

int remove(Host &host, const WorkingCopy &copy, const std::string &name) {
    const std::string full = full_branch(name);
    require_not_current(copy, name);
    if (!is_branch(copy, name)) throw Failed(kNotFound, say("%s: no such branch", name));
    OwnedReference reference(check(zReferenceLookup(copy.repository(), wide(full).c_str())));
    const Oid tip = *check(zReferenceResolve(reference.get()), name);
    if (!is_kept(copy, host.notify, tip, full)) confirm_loss(host, name, tip);
    const OwnedIndex lock = copy.lock_index(); // not over the question; HEAD may have moved there
    require_not_current(copy, name);
    check(zReferenceDelete(reference.get()), name); // as it was asked about, else not
    host.out.line(say("deleted %s, which was at %s", name, short_id(&tip)));
    host.out.record(Record("branch").set(u"name", name).set(u"deleted", true).set(u"id", &tip));
    return kDone;
}

int make(Host &host, const WorkingCopy &copy, const Options &options) {
    if (is_branch(copy, options.name))
        throw Failed(kExists, say("%s: there is a branch of that name", options.name));
    const OwnedCommit commit = copy.commit(options.revision.empty() ? "HEAD" : options.revision);
    const OwnedIndex lock = copy.lock_index(); // what a kill leaves goes with the next one
    make_branch(copy, options.name, commit.get());
    host.out.line(say("%s at %s", options.name, short_id(zCommitId(commit.get()))));
    host.out.record(Record("branch")
                        .set(u"name", options.name)
                        .set(u"current", false)
                        .set(u"id", zCommitId(commit.get())));
    return kDone;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    if (options.name.empty() && options.remove)
        throw Failed(kInvalid, "which branch is to be deleted?");
    if (options.name.empty()) return list(host, copy);
    return options.remove ? remove(host, copy, options.name) : make(host, copy, options);
}

} // namespace

extern const Verb kBranchVerb{"branch", Group::upkeep, Nature::plain, bind<Options, declare, run>};

} // namespace host
