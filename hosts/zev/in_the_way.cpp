// What a commit holds is brought back to it, so that the old state stands whole if it ends here;
// what none holds goes by itself.
#include "in_the_way.hpp"

#include "front.hpp"
#include "transfer.hpp"

#include <map>

namespace host {

namespace fs = std::filesystem;

namespace {

using Wanted = std::map<std::string, std::optional<Oid>>; // nothing for a file that goes

Wanted wanted_files(Commit *from, Commit *to) {
    const OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
    const OwnedDiff changes(check(zCommitDiff(from, to, spec.get(), nullptr)));
    Wanted files;
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i) {
        const DiffEntry *entry = zDiffListEntry(changes.get(), i);
        std::optional<Oid> id;
        if (zDiffEntryStatus(entry) != Z_KIND_DELETED) id = *zDiffEntryNewId(entry);
        files.emplace(narrow(zDiffEntryNewPath(entry)), id);
    }
    return files;
}

// Null for a file that goes.
const Oid *wanted_at(const Wanted &wanted, const std::string &path) {
    const auto file = wanted.find(path);
    return file != wanted.end() && file->second ? &*file->second : nullptr;
}

bool is_as_wanted(const WorkingCopy &copy, const Wanted &wanted, const std::string &path) {
    const Oid *file = wanted_at(wanted, path);
    const fs::path full = copy.absolute(path);
    if (!file || !fs::is_regular_file(fs::symlink_status(full))) return false;
    Oid id;
    check(zOidFromFile(&id, full.u16string().c_str()), path);
    return zOidIsEqual(&id, file);
}

struct InTheWay {
    Paths tracked, others;
};

InTheWay find_in_the_way(const WorkingCopy &copy, const Wanted &wanted) {
    InTheWay found;
    if (wanted.empty()) return found;
    const OwnedSpec spec(
        check(zPathSpecNew(nullptr, Z_SPEC_LITERAL | Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
    for (const auto &[path, id] : wanted) check(zPathSpecAdd(spec.get(), wide(path).c_str()));
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedStatus list(check(zStatusListBuild(index.get(), spec.get())));
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
        const StatusEntry *entry = zStatusListEntry(list.get(), i);
        const int32_t kind = zStatusEntryStatus(entry);
        std::string path = narrow(zStatusEntryPath(entry));
        const bool is_there = copy.is_on_disk(path);
        const bool is_removed = !is_there && kind == Z_KIND_DELETED && wanted_at(wanted, path);
        if (!is_there && !is_removed) continue;
        if (is_there && is_as_wanted(copy, wanted, path)) continue;
        const bool reverts = is_removed || kind == Z_KIND_ADDED || kind == Z_KIND_MODIFIED;
        (reverts ? found.tracked : found.others).push_back(std::move(path));
    }
    return found;
}

void confirm(Host &host, Paths files, const Paths &others) {
    files.insert(files.end(), others.begin(), others.end());
    const bool one = files.size() == 1;
    require_yes(host.notify,
                {.id = "zev.switch.trash",
                 .title = "",
                 .instruction = one ? say("1 file of yours is otherwise there. Move it to the "
                                          "trash and go on?")
                                    : say("%s files of yours are otherwise there. Move them to the "
                                          "trash and go on?",
                                          files.size()),
                 .content = some_of(files),
                 .buttons = {"Go on", "Keep my changes"}},
                "nothing was changed");
}

void revert(Host &host, const WorkingCopy &copy, const Paths &files) {
    if (files.empty()) return;
    const OwnedSpec spec(
        check(zPathSpecNew(nullptr, Z_SPEC_LITERAL | Z_SPEC_NO_UNTRACKED | Z_SPEC_NO_IGNORED)));
    check(zPathSpecSetNotify(spec.get(), host.notify));
    for (const std::string &path : files) check(zPathSpecAdd(spec.get(), wide(path).c_str()));
    host.notify->forget();
    check(zShellRevert(copy.repository(), spec.get()));
    require_done(host, say("moving your files to the trash"));
}

} // namespace

void clear_way(Host &host, const WorkingCopy &copy, Commit *from, Commit *to) {
    const InTheWay found = find_in_the_way(copy, wanted_files(from, to));
    if (found.tracked.empty() && found.others.empty()) return;
    confirm(host, found.tracked, found.others);
    stop_on_break(host.notify);
    for (const std::string &path : found.others) {
        check(zTrashMoveInto(copy.repository(), wide(path).c_str()), path);
        tell(host, "trashed", "In trash", Colour::dim, path);
    }
    revert(host, copy, found.tracked);
}

} // namespace host
