// commit: a state of the files, kept for good.

#include "amend.hpp"
#include "author.hpp"
#include "detached.hpp"
#include "foreign_rows.hpp"
#include "index_change.hpp"
#include "merge_state.hpp"
#include "remote_copy.hpp"
#include "sending.hpp"

#include <utility>

namespace host {

namespace {

struct Options {
    std::optional<std::string> message;
    std::string author; // empty: whom the settings name
    Paths paths;        // none: what was added
    bool all = false;   // every tracked file as it stands
    bool amend = false;
};

void declare(Command &verb, Options &options) {
    verb.alias("ci");
    verb.description("Keep a state of the files for good");
    verb.footer(
        "Without paths the commit holds what was added; with paths it holds these as they\n"
        "stand, whatever else was added. --all takes every tracked file as it stands, and what\n"
        "was added; new files are to be added first, or \"zev commit .\" takes them, too.\n"
        "The commit that ends a merge says what \"zev merge\" was told, unless -m says more.\n"
        "--amend makes the last commit anew, with these, and with other words if there are any.\n"
        "In a copy of a server's project what is new there comes in first, and the commit is\n"
        "sent; nothing is kept of one that fails.\n"
        "Examples:\n  zev commit -m \"First plan\"\n"
        "  zev commit -m \"Moved a door\" --author Ada plan.dwx");
    verb.add_option("-m,--message", options.message, "What was done");
    verb.add_option("--author", options.author,
                    "Who did it; else zev.author of the settings, $ZEV_AUTHOR, you");
    const Argument paths = verb.add_option("paths", options.paths, "Only these files");
    verb.add_flag("-a,--all", options.all, "Each tracked file that was changed or is gone")
        ->excludes(paths);
    verb.add_flag("--amend", options.amend, "In place of the last commit, which nobody else has");
}

// Without paths the commit takes the index as it is: does it differ from HEAD at all? Entries that
// only say that a file is to be added make no difference.
void require_changes(const WorkingCopy &copy, Index *index) {
    const OwnedTree tree(check(zIndexWriteTree(index)));
    const bool same = copy.born()
                          ? zOidIsEqual(zTreeId(tree.get()), zCommitTreeId(copy.head().get()))
                          : zTreeEntryCount(tree.get()) == 0;
    if (same) throw Failed(kNotFound, "nothing to commit; \"zev add\" files or name them");
}

// What a commit is made of.
struct Request {
    const Paths &paths;
    PathSpec *spec; // null: the whole index
    std::string author, message;
    bool is_told = false; // that a merge ends with it
};

// Under the index's lock. Null where another program came in between. One of paths only settles no
// merge.
OwnedCommit commit(Host &host, const WorkingCopy &copy, Index *index, Request &request) {
    std::optional<Unsettled> merge;
    if (request.paths.empty()) merge = unsettled_merge(copy);
    if (!request.spec && !merge) require_changes(copy, index);
    keep_named(copy, index, request.paths);
    const std::string note = merge && !merge->whole ? "\n\n" + part_note(merge->theirs) : "";
    std::string &message = request.message;
    if (!message.ends_with(note)) message += note; // once, however often it is tried
    stop_on_break(host.notify);
    if (merge && !std::exchange(request.is_told, true)) tell_merge_ends(host, *merge);
    const auto make = [&](PathSpec *spec) {
        return OwnedCommit(zIndexCommitWith(index, spec, u"HEAD", wide(request.author).c_str(),
                                            wide(message).c_str(), merge ? &merge->theirs : nullptr,
                                            merge && merge->whole ? 1 : 0));
    };
    OwnedCommit made = make(request.spec);
    if (!made && request.spec && zErrorClass() == kNotFound) { // nothing changed at these paths
        if (!merge) throw Failed(kNotFound, narrow(zErrorMsg()));
        made = make(nullptr); // the merge came to what HEAD has, and is one all the same
    }
    if (made && merge) finish_merge(copy);
    return made;
}

int commit_here(Host &host, const WorkingCopy &copy, Request request) {
    OwnedCommit made;
    const auto make = [&](Index *index) {
        made = commit(host, copy, index, request);
        return made != nullptr;
    };
    if (!make_unless_conflicts(copy, make)) return fail_conflicts(host);
    tell_commit(host, made.get(), request.author, request.message);
    if (!request.paths.empty()) tell_merge(host, copy, false); // of paths only: it goes on
    return kDone;
}

// What a commit takes from the disk; nothing where it takes the index as it is.
OwnedSpec selection(Host &host, const WorkingCopy &copy, const Options &options) {
    if (options.paths.empty() && !options.all) return {};
    const Paths paths = options.all ? Paths{copy.root().string()} : options.paths;
    const uint32_t left_out =
        Z_SPEC_NO_IGNORED | (options.all ? uint32_t{Z_SPEC_NO_UNTRACKED} : 0u);
    const OwnedSpec changes = copy.spec(paths, left_out | Z_SPEC_NO_UNCHANGED, host.notify);
    prepare_drawings(host, copy, changes.get());
    warn_of_read_only(host, copy, changes.get());
    return copy.spec(paths, left_out, host.notify);
}

// As the commit will have it: what is no text becomes a sign for that. Empty only where the last
// commit's stays. A merge has words already.
std::string message_of(const WorkingCopy &copy, const Options &options) {
    if (!options.message && options.amend) return {};
    if (!options.message && options.paths.empty())
        if (std::string noted = noted_message(copy); !noted.empty()) return noted;
    if (!options.message) throw Failed(kInvalid, "what was done? Say it by -m MESSAGE");
    std::string message = narrow(wide(clean(*options.message)).c_str());
    if (message.find_first_not_of(" \t\r\n\b\f") == message.npos)
        throw Failed(kInvalid, "the message is empty; say what was done");
    return message;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const std::string message = message_of(copy, options);
    require_branch(copy);
    OwnedSpec spec = selection(host, copy, options);
    if (options.amend)
        return amend(host, copy, {options.paths, spec.get(), clean(options.author), message});
    if (!origin_of(copy).empty())
        return send_commit(host, copy, options.paths, std::move(spec), options.author, message);
    return commit_here(host, copy,
                       {.paths = options.paths,
                        .spec = spec.get(),
                        .author = author_of(host, copy, options.author),
                        .message = message});
}

} // namespace

extern const Verb kCommitVerb{"commit", Group::work, Nature::displaces,
                              bind<Options, declare, run>};

} // namespace host
