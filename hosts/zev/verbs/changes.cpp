// changes: what a commit of some paths would take.

#include "listing.hpp"

#include <map>

namespace host {

namespace {

struct Options {
    Paths paths;
};

void declare(Command &verb, Options &options) {
    verb.description("Show what a commit of these paths would take");
    verb.footer(
        "Tracked files only, with the new directories above them. A file that is gone from\n"
        "the disk, and not by \"zev rm\", is brought back first.\n"
        "Examples:\n  zev changes\n  zev changes plans");
    verb.add_option("paths", options.paths, "Files, directories, patterns; else everything");
}

using ListedMap = std::map<std::string, Listed>;

ListedMap changelist(const Front &front, WideList &&paths) {
    ListedMap found;
    auto visit = [&](const Listed &listed) { found.try_emplace(listed.path, listed); };
    check(zCommandChangelist(front.path(), paths.size(), paths.data(), listing<decltype(visit)>(),
                             &visit));
    return found;
}

// The front doesn't find deleted files by name, nor patterns: these come out of the whole.
int run(Host &host, const Options &options) {
    WorkingCopy copy;
    const Selection selection(copy, options.paths);
    const Front front(host, copy);
    WideList all, names;
    all.add("");
    for (const std::string &path : selection.names()) names.add(path);
    ListedMap found = selection.all() ? ListedMap() : changelist(front, std::move(names));
    for (const auto &[path, listed] : changelist(front, std::move(all)))
        if (selection.has(path.ends_with('/') ? path.substr(0, path.size() - 1) : path))
            found.try_emplace(path, listed);
    for (const auto &[path, listed] : found) print_listed(host, "change", listed);
    host.out.record(Record("summary").set(u"changes", uint64_t{found.size()}));
    if (found.empty()) host.out.line("nothing has changed");
    return kDone;
}

} // namespace

extern const Verb kChangesVerb{"changes", Group::work, Nature::plain, bind<Options, declare, run>};

} // namespace host
