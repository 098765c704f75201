// revert: files as in the last commit.

#include "conflict_nodes.hpp"
#include "front.hpp"
#include "kinds.hpp"
#include "merge_state.hpp"
#include "transfer.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr size_t kExamples = 10; // files that a question names

struct Options {
    Paths paths;      // none: everything, after a question
    bool all = false; // without one
};

void declare(Command &verb, Options &options) {
    verb.description("Bring files back to the last commit");
    verb.footer("What was never committed goes to the trash; untracked files stay as they are.\n"
                "A renamed file gets its old name back. Without paths it asks first.\n"
                "Examples:\n  zev revert plan.dwx\n  zev revert plans 'details/*.dwx'\n"
                "  zev revert --all");
    const Argument paths = verb.add_option("paths", options.paths, "Files, directories, patterns");
    verb.add_flag("--all", options.all, "Everything, without a question")->excludes(paths);
}

struct Reverted {
    std::set<std::string> files;
    std::vector<std::string> shown; // for the question
};

// What differs and is selected. The new name of a renamed file takes the old one along.
Reverted files_of(Host &host, const WorkingCopy &copy, const Selection &selection) {
    OwnedSpec spec(check(
        zPathSpecNew(nullptr, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_UNTRACKED | Z_SPEC_NO_IGNORED)));
    OwnedStatus list(check(zShellStatus(copy.repository(), spec.get())));
    Reverted out;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
        const StatusEntry *entry = zStatusListEntry(list.get(), i);
        const std::string path = narrow(zStatusEntryPath(entry));
        const std::string from = narrow(zStatusEntryFrom(entry));
        const bool named = selection.has(path);
        if (!named && !selection.has(from)) continue;
        if (zStatusEntryStatus(entry) == Z_KIND_TYPECHANGE) {
            host.out.warn(say("%s: is no file or link as before; take it away, then revert",
                              typed_path(path)));
            continue;
        }
        if (named) out.files.insert(path);
        out.files.insert(from);
        out.shown.push_back(kind_column(zStatusEntryStatus(entry)) +
                            typed_path(zStatusEntryPath(entry)));
    }
    return out;
}

void confirm(Host &host, const Reverted &reverted) {
    const size_t count = reverted.shown.size();
    std::string content;
    for (size_t i = 0; i < std::min(count, kExamples); ++i)
        content += (i ? "\n" : "") + reverted.shown[i];
    if (count > kExamples) content += "\n" + say("and %s more", count - kExamples);
    require_yes(host.notify,
                {"revert-all",
                 "Revert",
                 say(count == 1 ? "%s file differs from the last commit. Bring everything back?"
                                : "%s files differ from the last commit. Bring everything back?",
                     count),
                 content,
                 {"Revert everything", "Keep my changes"}},
                "nothing was reverted", "name the files, or give --all");
}

// Of a conflict ours is what the branch has, and what it is brought back to; theirs is not taken.
bool settle_conflicts(Host &host, const WorkingCopy &copy, const Selection &selection) {
    if (!has_conflicts(copy)) return false;
    take_ours(host, copy, [&](const std::string &path) { return selection.has(path); });
    return true;
}

// What was reverted as a whole must not count as merged by a later commit.
void forget_merge(const WorkingCopy &copy) {
    if (has_conflicts(copy) || !copy.born()) return;
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    if (is_as_head(copy, index.get())) finish_merge(copy);
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const Selection selection(copy, options.paths);
    const Reverted reverted = files_of(host, copy, selection);
    if (options.paths.empty() && !options.all && !reverted.files.empty()) confirm(host, reverted);
    stop_on_break(host.notify);
    std::set<std::string> files = reverted.files;
    if (settle_conflicts(host, copy, selection)) files = files_of(host, copy, selection).files;
    if (!files.empty()) {
        const Front front(host, copy);
        WideList list;
        for (const std::string &path : files) list.add(path);
        host.notify->forget();
        check(zCommandRevert(front.path(), list.size(), list.data(), host.notify));
    }
    forget_merge(copy);
    if (!files.empty()) require_done(host, "revert");
    host.out.record(Record("summary").set(u"changes", uint64_t{reverted.shown.size()}));
    if (reverted.files.empty()) host.out.line("nothing to revert");
    return kDone;
}

} // namespace

extern const Verb kRevertVerb{"revert", Group::work, Nature::displaces,
                              bind<Options, declare, run>};

} // namespace host
