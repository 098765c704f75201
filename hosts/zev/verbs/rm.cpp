// rm: files out of the work directory and of the next commit, into the trash.

#include "front.hpp"
#include "keep_files.hpp"
#include "odd_names.hpp"
#include "sending.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    Paths paths;
};

void declare(Command &verb, Options &options) {
    verb.description("Move files to the trash and out of the next commit");
    verb.footer("Directories go with all they hold; * and ? are wild and take tracked files.\n"
                "\"zev trash\" brings back what was taken.\n"
                "Examples:\n  zev rm plan.dwx\n  zev rm details 'plans/*.dwx'");
    verb.add_option("paths", options.paths, "Files, directories, patterns")->required();
}

// A pattern takes files and leaves the directories.
void add_matches(std::set<std::string> &targets, Index *index, const Selection &selection) {
    Owned<Vector, zPathListFree> list(check(zIndexMatch(index, selection.patterns())));
    const uint64_t count = zPathListLength(list.get());
    for (uint64_t i = 0; i < count; ++i) {
        std::string path = narrow(zPathListEntry(list.get(), i));
        if (!is_keep(path) && !selection.has_name(path)) targets.insert(std::move(path));
    }
    if (!count) throw Failed(kNotFound, "no tracked file matches");
}

// What is to go: each once, and nothing below another.
std::set<std::string> targets_of(const WorkingCopy &copy, const Selection &selection) {
    if (selection.all()) throw Failed(kInvalid, "the working copy itself can't be removed");
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    std::set<std::string> targets;
    for (const std::string &path : selection.names()) {
        if (!copy.is_on_disk(path) && !is_tracked(index.get(), path))
            throw Failed(kNotFound, say("%s: no such file or directory", typed_path(path)));
        const std::string above = fs::path(path).parent_path().string();
        if (!selection.has_name(above)) targets.insert(path);
    }
    if (selection.patterns()) add_matches(targets, index.get(), selection);
    return targets;
}

// Itself, or a directory above it.
bool is_target(const std::set<std::string> &targets, std::string path) {
    for (size_t slash = 0; !targets.contains(path); path.erase(slash))
        if ((slash = path.rfind('/')) == path.npos) return false;
    return true;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    Paths paths;
    for (const std::string &path : options.paths)
        paths.push_back(under_plain_name(host, copy, path));
    const Selection selection(copy, paths);
    std::set<std::string> targets = targets_of(copy, selection);
    stop_on_break(host.notify);
    const Front front(host, copy, &selection);
    // A file that was only added and is gone from the disk left the index on the way.
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    WideList list;
    for (const std::string &path : targets)
        if (copy.is_on_disk(path) || is_tracked(index.get(), path))
            list.add(path);
        else
            tell(host, "deleted", "Deleted", Colour::red, path);
    index.reset();
    host.notify->forget();
    if (list.size()) check(zCommandRm(front.path(), list.size(), list.data(), host.notify));
    require_done(host, "rm");
    warn_of_read_only(host, copy,
                      [&](const std::string &path) { return is_target(targets, path); });
    return kDone;
}

} // namespace

extern const Verb kRmVerb{"rm", Group::work, Nature::displaces, bind<Options, declare, run>};

} // namespace host
