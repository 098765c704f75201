// tag: names of commits, which stay where they are.

#include "refs.hpp"
#include "show.hpp"
#include "verb.hpp"
#include "when.hpp"

#include <map>

namespace host {

namespace {

struct Options {
    std::string name; // empty: list them
    std::string revision;
    bool remove = false;
};

void declare(Command &verb, Options &options) {
    verb.description("List, make and delete tags: names of commits");
    verb.footer("A tag names the same commit for good, such as what was sent or approved; it is a\n"
                "revision like any other. Tags stay in this copy; no server has them from here.\n"
                "Examples:\n  zev tag\n  zev tag approved\n  zev tag sent-to-site HEAD~1\n"
                "  zev tag --delete approved\n  zev switch approved\n  zev diff plan.dwx approved");
    verb.add_option("name", options.name, "The tag to make, or to delete");
    const Argument at = verb.add_option("revision", options.revision, "What it names; else HEAD");
    at->type_name("REV");
    verb.add_flag("--delete", options.remove, "Delete it; the commit stays")->excludes(at);
}

using OwnedReference = Owned<Reference, zReferenceFree>;

std::string full_tag(const std::string &name) { return std::string(kTags) + name; }

// By short name, with what they lead to; a tag of git's own with words to it leads to itself.
std::map<std::string, Oid> tags_of(const WorkingCopy &copy) {
    std::map<std::string, Oid> found;
    for (const auto &[name, id] : all_references(copy))
        if (name.starts_with(kTags)) found.emplace(name.substr(kTags.size()), id);
    return found;
}

Record record_of(const std::string &name, const Oid *id) {
    return std::move(Record("tag").set(u"name", name).set(u"id", id));
}

// One that names no commit, or one that is not here, is shown by its id alone.
int list(Host &host, const WorkingCopy &copy) {
    const auto tags = tags_of(copy);
    size_t longest = 0;
    for (const auto &[name, id] : tags) longest = std::max(longest, name.size());
    if (tags.empty()) host.out.line("there are no tags; \"zev tag NAME\" makes one");
    for (const auto &[name, id] : tags) {
        const OwnedCommit commit(zCommitByid(copy.repository(), &id));
        const Oid *shown = commit ? zCommitId(commit.get()) : &id;
        const std::string message = commit ? clean(narrow(zCommitMessage(commit.get()))) : "";
        host.out.line(padded(name, longest + 2) + host.out.paint(Colour::yellow, short_id(shown)) +
                      "  " + first_line(message));
        Record record = record_of(name, shown);
        if (commit) {
            record.set(u"author", narrow(zCommitAuthor(commit.get()))).set(u"message", message);
            record.set(u"time", iso_time(seconds_of(commit.get())));
        }
        host.out.record(record);
    }
    return kDone;
}

int remove(Host &host, const WorkingCopy &copy, const std::string &name) {
    const std::string full = full_tag(name);
    if (!zReferenceExists(copy.repository(), wide(full).c_str()))
        throw Failed(kNotFound, say("%s: no such tag", name));
    const OwnedIndex lock = copy.lock_index(); // what a kill leaves goes with the next one
    const OwnedReference reference(check(zReferenceLookup(copy.repository(), wide(full).c_str())));
    const Oid id = *check(zReferenceResolve(reference.get()), name);
    check(zReferenceDelete(reference.get()), name);
    host.out.line(say("deleted %s, which was %s", name, short_id(&id)));
    host.out.record(record_of(name, &id).set(u"deleted", true));
    return kDone;
}

// A name that revisions read otherwise would never be found.
void require_name(const WorkingCopy &copy, const std::string &name) {
    if (name.starts_with('-') || name == "HEAD" || name.find_first_of("~^:") != name.npos)
        throw Failed(kInvalid, say("\"%s\": no name for a tag", name));
    if (zReferenceExists(copy.repository(), wide(full_tag(name)).c_str()))
        throw Failed(kExists, say("%s: there is a tag of that name; delete it first", name));
    if (is_branch(copy, name))
        throw Failed(kExists,
                     say("%s: is a branch, which a revision of that name would mean", name));
}

int make(Host &host, const WorkingCopy &copy, const Options &options) {
    require_name(copy, options.name);
    const OwnedCommit commit = copy.commit(options.revision.empty() ? "HEAD" : options.revision);
    const Oid *id = zCommitId(commit.get());
    const OwnedIndex lock = copy.lock_index();
    require_name(copy, options.name);
    const OwnedReference made(
        check(zReferenceCreate(copy.repository(), wide(full_tag(options.name)).c_str(), id),
              options.name));
    host.out.line(say("%s is %s", options.name, short_id(id)) + " " +
                  first_line(narrow(zCommitMessage(commit.get()))));
    host.out.record(record_of(options.name, id));
    return kDone;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    if (options.name.empty() && options.remove)
        throw Failed(kInvalid, "which tag is to be deleted?");
    if (options.name.empty()) return list(host, copy);
    return options.remove ? remove(host, copy, options.name) : make(host, copy, options);
}

} // namespace

extern const Verb kTagVerb{"tag", Group::upkeep, Nature::plain, bind<Options, declare, run>};

} // namespace host
