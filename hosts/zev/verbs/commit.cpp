// commit: a state of the files, kept for good.

#include "author.hpp"
#include "merge_state.hpp"
#include "show.hpp"

namespace host {

namespace {

struct Options {
    std::string message;
    std::string author; // empty: ZEV_AUTHOR, else the login name
    Paths paths;        // none: what was added
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Keep a state of the files for good");
    verb.footer("Without paths the commit holds what was added; with paths it holds these as they\n"
                "stand, whatever else was added.\n"
                "Examples:\n  zev commit -m \"First plan\"\n"
                "  zev commit -m \"Moved a door\" --author Ada plan.dwx");
    verb.add_option("-m,--message", options.message, "What was done")->required();
    verb.add_option("--author", options.author, "Who did it; else $ZEV_AUTHOR, else you");
    verb.add_option("paths", options.paths, "Only these files");
}

// Without paths the commit takes the index as it is: does it differ from HEAD at all?
void require_changes(const WorkingCopy &copy, Index *index) {
    bool same = zIndexEntryCount(index) == 0;
    if (copy.born()) {
        OwnedTree tree(check(zIndexWriteTree(index)));
        same = zOidIsEqual(zTreeId(tree.get()), zCommitTreeId(copy.head().get()));
    }
    if (same) throw Failed(kNotFound, "nothing to commit; \"zev add\" files or name them");
}

// The keep-files of named directories are part of them.
void keep_named(const WorkingCopy &copy, Index *index, const Paths &paths) {
    for (const std::string &path : paths) {
        std::string below = copy.relative(path);
        if (!below.empty() && std::filesystem::is_directory(copy.absolute(below)))
            check(zIndexFixupGitkeep(index, wide(below).c_str()));
    }
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    std::string message = clean(options.message);
    if (message.find_first_not_of(" \t\r\n\b\f") == message.npos)
        throw Failed(kInvalid, "the message is empty; say what was done");
    std::string author = author_of(options.author);
    OwnedIndex index = copy.lock_index();
    if (zIndexHasConflicts(index.get())) {
        const char *what = "conflicts remain; \"zev conflicts\" lists them";
        host.out.fail(Failed(kOther, what), kConflicts);
        return kConflicts;
    }
    OwnedSpec spec;
    std::optional<Unsettled> merge;
    if (options.paths.empty()) { // of paths only, it settles no merge
        merge = unsettled_merge(copy);
        if (!merge) require_changes(copy, index.get());
    } else {
        spec = copy.spec(options.paths, Z_SPEC_NO_IGNORED, host.notify);
        keep_named(copy, index.get(), options.paths);
    }
    if (merge && !merge->whole) message += "\n\n" + part_note(merge->theirs);
    stop_on_break(host.notify);
    OwnedCommit made(zIndexCommitWith(index.get(), spec.get(), u"HEAD", wide(author).c_str(),
                                      wide(message).c_str(), merge ? &merge->theirs : nullptr,
                                      merge && merge->whole ? 1 : 0));
    if (!made && spec && zErrorClass() == kNotFound)
        throw Failed(kNotFound, narrow(zErrorMsg())); // nothing changed at these paths
    check(!!made);
    if (merge) finish_merge(copy);
    std::string id = hex(zCommitId(made.get()));
    host.out.line(host.out.paint(Colour::yellow, id.substr(0, 8)) + " " + first_line(message));
    host.out.record(Record("commit")
                        .set(u"id", id)
                        .set(u"tree", zCommitTreeId(made.get()))
                        .set(u"author", author)
                        .set(u"message", message));
    return kDone;
}

} // namespace

extern const Verb kCommitVerb{"commit", Group::work, Nature::changes, bind<Options, declare, run>};

} // namespace host
