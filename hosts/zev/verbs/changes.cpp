// changes: what a commit of some paths would take.

#include "front.hpp"
#include "listing.hpp"
#include "moved.hpp"

#include <map>

namespace host {

namespace {

struct Options {
    Paths paths;
};

void declare(Command &verb, Options &options) {
    verb.description("Show what a commit of these paths would take");
    verb.footer("Tracked files only, also what is missing: gone from the disk, and not by \"zev "
                "rm\".\n"
                "Nothing is changed.\n"
                "Examples:\n  zev changes\n  zev changes plans");
    verb.add_option("paths", options.paths, "Files, directories, patterns; else everything");
}

bool is_selected(const Selection &selection, const Listed &listed) {
    const auto has = [&](const std::string &path) {
        return selection.has(path.ends_with('/') ? path.substr(0, path.size() - 1) : path);
    };
    return has(listed.path) || (!listed.old.empty() && has(listed.old));
}

int run(Host &host, const Options &options) {
    const WorkingCopy copy;
    const Selection selection(copy, options.paths);
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedSpec all = copy.spec({}, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_IGNORED, host.notify);
    const OwnedStatus list(check(zStatusListBuild(index.get(), all.get())));
    std::map<std::string, Listed> found; // by path
    for (Listed &listed : listed_changes(list.get())) {
        std::string path = listed.path;
        if (is_selected(selection, listed)) found.emplace(std::move(path), std::move(listed));
    }
    for (const auto &[path, listed] : found) print_listed(host, "change", listed);
    if (selection.all()) tell_moves(host, copy, list.get());
    host.out.record(Record("summary").set(u"changes", uint64_t{found.size()}));
    if (found.empty()) host.out.line("nothing has changed");
    return kDone;
}

} // namespace

extern const Verb kChangesVerb{"changes", Group::work, Nature::plain, bind<Options, declare, run>};

} // namespace host
