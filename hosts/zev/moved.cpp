// Nothing is opened for the usual case, in which nothing is gone. Drawings are compared by the
// tables that their manifests name; a table itself is opened only to change whom it serves.
#include "moved.hpp"

#include "bytes.hpp"
#include "dxf/manifest.hpp"
#include "dxf/rows.hpp"
#include "ids.hpp"
#include "walks.hpp"

#include <map>
#include <set>

namespace host {

namespace fs = std::filesystem;

namespace {

// A file as it is tracked.
struct Tracked {
    Oid id;
    uint32_t size; // modulo 2^32; 0 where only a tree has it
};
using TrackedFiles = std::map<std::string, Tracked>;

template <class F> TrackedFiles entries_of(Index *index, F is_wanted) {
    TrackedFiles files;
    each_entry_of(index, [&](const IndexEntry *entry) {
        std::string path = narrow(zIndexEntryPath(entry));
        if (!zIndexEntryStage(entry) && is_wanted(path))
            files.emplace(std::move(path), Tracked{*zIndexEntryID(entry), zIndexEntrySize(entry)});
    });
    return files;
}

void add_drawings_of_head(const WorkingCopy &copy, TrackedFiles &files) {
    if (!copy.born()) return;
    const OwnedTree tree(check(zCommitTree(copy.head().get())));
    const auto visit = [](const zwchar *directory, const TreeEntry *entry,
                          void *context) -> int32_t {
        try {
            const std::string name = narrow(zTreeEntryName(entry));
            if (zTreeEntryType(entry) == Z_OBJECT_BLOB && is_drawing_name(name))
                static_cast<TrackedFiles *>(context)->emplace(narrow(directory) + name,
                                                              Tracked{*zTreeEntryId(entry), 0});
            return 0;
        } catch (...) {
            return -1;
        }
    };
    zTreeWalk(tree.get(), visit, &files); // as far as this copy has its trees
}

// The tables of drawings that are gone, each with the first path that named it.
IdMap<std::string> tables_of_gone(const WorkingCopy &copy, const TrackedFiles &files) {
    IdMap<std::string> tables;
    const OwnedOdb odb(check(zOdbOpen(copy.repository())));
    Bytes bytes;
    for (const auto &[path, file] : files) {
        if (!is_drawing_name(path) || copy.is_on_disk(path)) continue;
        if (!zOdbExists(odb.get(), &file.id)) continue; // a copy may have a part of the history
        read_object(odb.get(), &file.id, bytes, path);
        if (const auto manifest = dxf::Manifest::read(bytes.data))
            tables.emplace(manifest->table, path);
    }
    return tables;
}

bool same_bytes(const WorkingCopy &copy, const Tracked &file, const std::string &path) {
    const fs::path full = copy.absolute(path);
    std::error_code error;
    if (!file.size || !fs::is_regular_file(fs::symlink_status(full, error)) ||
        static_cast<uint32_t>(fs::file_size(full, error)) != file.size || error)
        return false;
    Oid id;
    return zOidFromFile(&id, full.u16string().c_str()) && zOidIsEqual(&id, &file.id);
}

// What names that differ in case only have in common.
std::u16string folded(const std::string &path) {
    std::u16string text = wide(path);
    zStrlwrW(text.data());
    return text;
}

} // namespace

std::vector<Move> find_moves(const WorkingCopy &copy, const Paths &gone, const Paths &untracked) {
    if (gone.empty() || untracked.empty()) return {};
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const std::set<std::string> lost(gone.begin(), gone.end());
    const TrackedFiles files =
        entries_of(index.get(), [&](const std::string &path) { return lost.contains(path); });
    const IdMap<std::string> tables = tables_of_gone(copy, files);
    std::map<std::string, std::string> found; // from, to
    for (const std::string &path : untracked) {
        Oid table;
        if (is_drawing_name(path)) {
            if (!zDrawingDetect(&table, copy.absolute(path).u16string().c_str())) continue;
            if (const auto at = tables.find(table); at != tables.end())
                found.emplace(at->second, path);
            continue;
        }
        for (const auto &[from, file] : files)
            if (!is_drawing_name(from) && !found.contains(from) && same_bytes(copy, file, path)) {
                found.emplace(from, path);
                break;
            }
    }
    std::vector<Move> moves;
    for (const auto &[from, to] : found) moves.push_back({from, to});
    return moves;
}

void tell_moves(Host &host, const WorkingCopy &copy, const StatusList *list) {
    Paths gone, untracked;
    for (uint64_t i = 0; i < zStatusListLength(list); ++i) {
        const StatusEntry *entry = zStatusListEntry(list, i);
        const int32_t kind = zStatusEntryStatus(entry);
        if (kind == Z_KIND_MISSING) gone.push_back(narrow(zStatusEntryPath(entry)));
        if (kind == Z_KIND_UNTRACKED) untracked.push_back(narrow(zStatusEntryPath(entry)));
    }
    for (const Move &move : find_moves(copy, gone, untracked)) {
        host.out.line(say("%s is %s now; \"zev mv\" with both names says so", typed_path(move.from),
                          typed_path(move.to)));
        host.out.record(Record("moved").set(u"from", move.from).set(u"path", move.to));
    }
}

void follow_moves(const WorkingCopy &copy, const Paths &untracked) {
    if (untracked.empty()) return;
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    TrackedFiles files = entries_of(index.get(), is_drawing_name);
    add_drawings_of_head(copy, files);
    const IdMap<std::string> tables = tables_of_gone(copy, files);
    if (tables.empty()) return;
    for (const std::string &path : untracked) {
        Oid table;
        if (!zDrawingDetect(&table, copy.absolute(path).u16string().c_str())) continue;
        if (const auto at = tables.find(table); at != tables.end())
            move_table(copy, at->second, path);
    }
}

void drop_old_cases(const WorkingCopy &copy, Index *index, const Paths &untracked) {
    if (untracked.empty()) return;
    std::set<std::string> directories;
    std::set<std::u16string> names;
    for (const std::string &path : untracked) {
        directories.insert(directory_of(path));
        names.insert(folded(path));
    }
    Paths gone;
    each_entry_of(index, [&](const IndexEntry *entry) {
        std::string path = narrow(zIndexEntryPath(entry));
        const bool is_beside = !zIndexEntryStage(entry) && directories.contains(directory_of(path));
        if (is_beside && names.contains(folded(path)) && !copy.is_on_disk(path))
            gone.push_back(std::move(path));
    });
    for (const std::string &path : gone) check(zIndexRemoveEntry(index, wide(path).c_str()));
}

void move_table(const WorkingCopy &copy, const std::string &from, const std::string &to) {
    Oid id;
    const std::u16string file = copy.absolute(to).u16string();
    if (!zDrawingDetect(&id, file.c_str())) return;
    if (!zPathDirExists(dxf::table_path(copy.repository(), &id).c_str())) return;
    const OwnedTable table(check(zTableByid(copy.repository(), &id), to));
    if (!zStrcasesameA(dxf::table_owner(table.get()).c_str(), from.c_str())) return;
    check(zDrawingTableBackwardRefSet(table.get(), copy.root().u16string().c_str(), file.c_str()));
}

} // namespace host
