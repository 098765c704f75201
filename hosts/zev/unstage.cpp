// The index is held against HEAD entry by entry: a status would join a loss and a gain to one
// rename, of which the user may have named one side only.
#include "unstage.hpp"

#include "front.hpp"
#include "index_change.hpp"
#include "merge_state.hpp"
#include "walks.hpp"

#include <map>

namespace host {

namespace {

struct Entry {
    Oid id;
    uint32_t mode;
};

struct Entries {
    std::map<std::string, Entry> files;
    std::set<std::string> conflicts;
};

Entries entries_of(Index *index) {
    Entries found;
    each_entry_of(index, [&](const IndexEntry *entry) {
        const std::string path = narrow(zIndexEntryPath(entry));
        if (zIndexEntryStage(entry))
            found.conflicts.insert(path);
        else
            found.files[path] = {*zIndexEntryID(entry), zIndexEntryMode(entry)};
    });
    return found;
}

// The index that a commit without changes would have; empty before the first commit.
OwnedIndex index_of_head(const WorkingCopy &copy) {
    if (!copy.born()) return OwnedIndex(check(zIndexNew(copy.repository())));
    const OwnedTree tree(check(zCommitTree(copy.head().get())));
    return OwnedIndex(check(zIndexBytree(tree.get())));
}

bool same(const Entry &a, const Entry &b) { return a.mode == b.mode && zOidIsEqual(&a.id, &b.id); }

struct Unstaged {
    std::vector<std::string> out, back; // paths that HEAD hasn't, and those that it has otherwise
    std::set<std::string> conflicts;    // which stay
};

Unstaged find(Index *index, Index *head, const Selection &selection) {
    const Entries now = entries_of(index), then = entries_of(head);
    Unstaged found;
    for (const std::string &path : now.conflicts)
        if (selection.has(path)) found.conflicts.insert(path);
    for (const auto &[path, entry] : now.files)
        if (!then.files.contains(path) && selection.has(path)) found.out.push_back(path);
    for (const auto &[path, entry] : then.files) {
        const auto other = now.files.find(path);
        const bool differs = other == now.files.end() || !same(entry, other->second);
        if (differs && !now.conflicts.contains(path) && selection.has(path))
            found.back.push_back(path);
    }
    return found;
}

void put_back(Index *index, Index *head, const Unstaged &found) {
    for (const std::string &path : found.out) // first: they may lie where others are to be
        check(zIndexRemoveEntry(index, wide(path).c_str()), path);
    for (const std::string &path : found.back)
        check(zIndexEntryAdd(index, check(zIndexEntryBypath(head, wide(path).c_str()), path)),
              path);
}

} // namespace

int unstage(Host &host, const WorkingCopy &copy, const Paths &paths) {
    const Selection selection(copy, paths);
    Unstaged found;
    change_index(copy, [&](Index *index, bool) {
        const OwnedIndex head = index_of_head(copy);
        found = find(index, head.get(), selection);
        stop_on_break(host.notify);
        put_back(index, head.get(), found);
    });
    for (const auto *list : {&found.out, &found.back})
        for (const std::string &path : *list)
            tell(host, "unstaged", "Unstaged", Colour::yellow, path);
    for (const std::string &path : found.conflicts)
        host.out.warn(
            say("%s: is in conflict and stays so; \"zev resolve\" settles it", typed_path(path)));
    if (found.out.empty() && found.back.empty())
        throw Failed(kNotFound, "nothing of that is marked for the next commit");
    if (unsettled_merge(copy))
        host.out.warn("a merge is not committed yet; the commit will lack what was taken out");
    return kDone;
}

} // namespace host
