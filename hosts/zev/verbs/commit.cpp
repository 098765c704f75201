// commit: a state of the files, kept for good.

#include "author.hpp"
#include "foreign_rows.hpp"
#include "index_change.hpp"
#include "merge_state.hpp"
#include "remote_copy.hpp"
#include "sending.hpp"

namespace host {

namespace {

struct Options {
    std::string message;
    std::string author; // empty: ZEV_AUTHOR, else the login name
    Paths paths;        // none: what was added
};

void declare(CLI::App &verb, Options &options) {
    verb.alias("ci");
    verb.description("Keep a state of the files for good");
    verb.footer(
        "Without paths the commit holds what was added; with paths it holds these as they\n"
        "stand, whatever else was added. In a copy of a server's project what is new there\n"
        "comes in first, and the commit is sent; nothing is kept of one that fails.\n"
        "Examples:\n  zev commit -m \"First plan\"\n"
        "  zev commit -m \"Moved a door\" --author Ada plan.dwx");
    verb.add_option("-m,--message", options.message, "What was done")->required();
    verb.add_option("--author", options.author, "Who did it; else $ZEV_AUTHOR, else you");
    verb.add_option("paths", options.paths, "Only these files");
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

// Under the index's lock. Null where another program came in between.
OwnedCommit commit(Host &host, const WorkingCopy &copy, Index *index, const Paths &paths,
                   PathSpec *spec, const std::string &author, std::string &message) {
    std::optional<Unsettled> merge;
    if (spec) { // of paths only, it settles no merge
        keep_named(copy, index, paths);
    } else {
        merge = unsettled_merge(copy);
        if (!merge) require_changes(copy, index);
    }
    const std::string note = merge && !merge->whole ? "\n\n" + part_note(merge->theirs) : "";
    if (!message.ends_with(note)) message += note; // once, however often it is tried
    stop_on_break(host.notify);
    OwnedCommit made(zIndexCommitWith(index, spec, u"HEAD", wide(author).c_str(),
                                      wide(message).c_str(), merge ? &merge->theirs : nullptr,
                                      merge && merge->whole ? 1 : 0));
    if (!made && spec && zErrorClass() == kNotFound)
        throw Failed(kNotFound, narrow(zErrorMsg())); // nothing changed at these paths
    if (made && merge) finish_merge(copy);
    return made;
}

int commit_here(Host &host, const WorkingCopy &copy, const Paths &paths, PathSpec *spec,
                const std::string &author, std::string message) {
    OwnedCommit made;
    bool has_conflicts = false;
    const auto attempt = [&](bool) {
        const OwnedIndex index = copy.lock_index();
        has_conflicts = zIndexHasConflicts(index.get());
        if (!has_conflicts) made = commit(host, copy, index.get(), paths, spec, author, message);
        return has_conflicts || made;
    };
    repeat_overtaken(attempt, [] {});
    return has_conflicts ? fail_conflicts(host) : tell_commit(host, made.get(), author, message);
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const std::string message = clean(options.message);
    if (message.find_first_not_of(" \t\r\n\b\f") == message.npos)
        throw Failed(kInvalid, "the message is empty; say what was done");
    OwnedSpec spec;
    if (!options.paths.empty()) {
        const uint32_t left_out = Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_IGNORED;
        fetch_foreign_rows(host, copy, copy.spec(options.paths, left_out, host.notify).get());
        spec = copy.spec(options.paths, Z_SPEC_NO_IGNORED, host.notify);
    }
    if (!origin_of(copy).empty())
        return send_commit(host, copy, options.paths, std::move(spec), options.author, message);
    return commit_here(host, copy, options.paths, spec.get(), author_of(options.author), message);
}

} // namespace

extern const Verb kCommitVerb{"commit", Group::work, Nature::displaces,
                              bind<Options, declare, run>};

} // namespace host
