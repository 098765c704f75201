// rm, revert, changes, ls: the working copy by way of the command front.

#include "front.hpp"

#include <algorithm>
#include <map>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr size_t kExamples = 10; // files that a question names

bool is_keep(const std::string &path) { return path == ".gitkeep" || path.ends_with("/.gitkeep"); }

bool on_disk(const WorkingCopy &copy, const std::string &path) {
    return fs::exists(fs::symlink_status(copy.absolute(path)));
}

// ---- rm

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
        if (!on_disk(copy, path) && !is_tracked(index.get(), path))
            throw Failed(kNotFound, path + ": no such file or directory");
        const std::string above = fs::path(path).parent_path().string();
        if (!selection.has_name(above)) targets.insert(path);
    }
    if (selection.patterns()) add_matches(targets, index.get(), selection);
    return targets;
}

// ---- revert

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
            host.out.warn(path + ": is no file or link as before; take it away, then revert");
            continue;
        }
        if (named) out.files.insert(path);
        out.files.insert(from);
        out.shown.push_back(padded(kind_name(zStatusEntryStatus(entry)), 12) +
                            shown_path(zStatusEntryPath(entry)));
    }
    return out;
}

void confirm(Host &host, const Reverted &reverted) {
    const size_t count = reverted.shown.size();
    std::string content;
    for (size_t i = 0; i < std::min(count, kExamples); ++i)
        content += (i ? "\n" : "") + reverted.shown[i];
    if (count > kExamples) content += "\nand " + std::to_string(count - kExamples) + " more";
    const std::string differ = count == 1 ? " file differs" : " files differ";
    const int32_t answer = ask(host.notify, {"revert-all",
                                             "Revert",
                                             std::to_string(count) + differ +
                                                 " from the last "
                                                 "commit. Bring everything back?",
                                             content,
                                             {"Revert everything", "Keep my changes"}});
    if (answer == 1) return;
    if (host.notify->outcome().unanswered)
        throw Failed(kInvalid, "revert everything? Name the files, or give --all");
    throw Failed(kCanceled, "nothing was reverted");
}

// ---- changes, ls

struct Listed {
    int32_t kind = 0;
    std::string old, path;
};

// A trampoline for what can throw: the library's frames lie between.
template <class Visit> CommandListing listing() {
    return [](int32_t kind, const zwchar *old, const zwchar *path, void *visit) {
        try {
            return (*static_cast<Visit *>(visit))(Listed{kind, narrow(old), narrow(path)}), true;
        } catch (...) {
            return false;
        }
    };
}

void print_listed(Host &host, const char *type, const Listed &listed) {
    const char *kind = kind_name(listed.kind);
    if (host.out.json()) {
        Record record(type);
        record.set(u"path", listed.path).set(u"status", kind);
        record.set(u"directory", listed.path.ends_with('/'));
        if (!listed.old.empty()) record.set(u"from", listed.old);
        return host.out.record(record);
    }
    host.out.line(host.out.paint(kind_colour(listed.kind), padded(kind, 12)) +
                  (listed.old.empty() ? "" : listed.old + " -> ") + listed.path);
}

using ListedMap = std::map<std::string, Listed>;

ListedMap changelist(const Front &front, WideList &&paths) {
    ListedMap found;
    auto visit = [&](const Listed &listed) { found.try_emplace(listed.path, listed); };
    check(zCommandChangelist(front.path(), paths.size(), paths.data(), listing<decltype(visit)>(),
                             &visit));
    return found;
}

} // namespace

int remove(Host &host, const Paths &paths) {
    WorkingCopy copy;
    const Selection selection(copy, paths);
    std::set<std::string> targets = targets_of(copy, selection);
    stop_on_break(host.notify);
    const Front front(host, copy, &selection);
    // A file that was only added and is gone from the disk left the index on the way.
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    WideList list;
    for (const std::string &path : targets)
        if (on_disk(copy, path) || is_tracked(index.get(), path))
            list.add(path);
        else
            tell(host, "deleted", "Deleted", Colour::red, path);
    index.reset();
    host.notify->forget();
    if (list.size()) check(zCommandRm(front.path(), list.size(), list.data(), host.notify));
    require_done(host, "rm");
    return kDone;
}

int revert(Host &host, const RevertOptions &options) {
    WorkingCopy copy;
    const Selection selection(copy, options.paths);
    const Reverted reverted = files_of(host, copy, selection);
    if (options.paths.empty() && !options.all && !reverted.files.empty()) confirm(host, reverted);
    stop_on_break(host.notify);
    if (!reverted.files.empty()) {
        const Front front(host, copy);
        WideList list;
        for (const std::string &path : reverted.files) list.add(path);
        host.notify->forget();
        check(zCommandRevert(front.path(), list.size(), list.data(), host.notify));
        require_done(host, "revert");
    }
    host.out.record(Record("summary").set(u"changes", uint64_t{reverted.shown.size()}));
    if (reverted.files.empty()) host.out.line("nothing to revert");
    return kDone;
}

// The front doesn't find deleted files by name, nor patterns: these come out of the whole.
int changes(Host &host, const Paths &paths) {
    WorkingCopy copy;
    const Selection selection(copy, paths);
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

int list(Host &host, const std::string &directory) {
    WorkingCopy copy;
    const std::string path = copy.relative(directory);
    const Front front(host, copy);
    std::vector<Listed> found;
    auto visit = [&](const Listed &listed) { found.push_back(listed); };
    if (!zCommandList(front.path(), wide(path).c_str(), listing<decltype(visit)>(), &visit)) {
        OwnedIndex index(check(zIndexHead(copy.repository(), false)));
        const bool file = zIndexEntryBypath(index.get(), wide(path).c_str());
        throw Failed(file ? kInvalid : kNotFound,
                     directory + (file ? ": is no directory" : ": nothing is tracked there"));
    }
    const auto is_directory = [](const Listed &listed) { return listed.path.ends_with('/'); };
    std::stable_partition(found.begin(), found.end(), is_directory);
    for (const Listed &listed : found) print_listed(host, "entry", listed);
    return kDone;
}

} // namespace host
