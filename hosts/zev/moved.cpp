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
#include <unordered_set>

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

// Files that are gone, but for drawings, by their bytes. Only what has the size of one of them is
// read.
class Contents {
  public:
    Contents(const WorkingCopy &copy, const TrackedFiles &gone) : copy_(copy) {
        for (auto at = gone.rbegin(); at != gone.rend(); ++at) {
            if (is_drawing_name(at->first) || !at->second.size) continue;
            sizes_.insert(at->second.size);
            paths_[at->second.id].push_back(at->first);
        }
    }
    // The first one with the bytes of the file at `path`, which is no other's from then on; empty
    // where there is none.
    std::string take(const std::string &path) {
        const fs::path full = copy_.absolute(path);
        std::error_code error;
        if (!fs::is_regular_file(fs::symlink_status(full, error))) return {};
        const auto size = static_cast<uint32_t>(fs::file_size(full, error));
        Oid id;
        if (error || !sizes_.contains(size) || !zOidFromFile(&id, full.u16string().c_str()))
            return {};
        const auto at = paths_.find(id);
        if (at == paths_.end() || at->second.empty()) return {};
        std::string from = std::move(at->second.back());
        at->second.pop_back();
        return from;
    }

  private:
    const WorkingCopy &copy_;
    std::unordered_set<uint32_t> sizes_;
    IdMap<std::vector<std::string>> paths_; // the first one last
};

// The directories, with their slashes, that a move of a file into one of the same name follows
// from; both empty where the file has another name now or came from the top.
Move above(const Move &move) {
    size_t from = move.from.size(), to = move.to.size();
    Move out;
    while (from && to) {
        const size_t a = move.from.rfind('/', from - 1) + 1, b = move.to.rfind('/', to - 1) + 1;
        if (move.from.compare(a, from - a, move.to, b, to - b)) break;
        out = {move.from.substr(0, a), move.to.substr(0, b)};
        if (!a || !b) break;
        from = a - 1, to = b - 1;
    }
    return out.from.empty() || out.to.empty() ? Move{} : out;
}

// Directories that are gone, with all files that were tracked there in another one now, which had
// none: they were renamed as a whole. An empty file is like any other one, and doesn't count.
std::map<std::string, std::string> renamed_directories(const WorkingCopy &copy, Index *index,
                                                       const std::vector<Move> &moves) {
    std::map<std::string, std::string> found;
    std::map<std::string, uint64_t> moved, tracked;
    for (const Move &move : moves) {
        const Move whole = above(move);
        if (whole.from.empty() || copy.is_on_disk(whole.from)) continue;
        const auto [at, is_new] = found.emplace(whole.from, whole.to);
        if (at->second == whole.to) ++moved[whole.from];
        tracked.emplace(whole.from, 0), tracked.emplace(whole.to, 0);
    }
    each_entry_of(index, [&](const IndexEntry *entry) {
        if (tracked.empty() || !zIndexEntrySize(entry)) return;
        const std::string path = narrow(zIndexEntryPath(entry));
        for (size_t at = path.find('/'); at != path.npos; at = path.find('/', at + 1))
            if (const auto one = tracked.find(path.substr(0, at + 1)); one != tracked.end())
                ++one->second;
    });
    std::erase_if(found, [&](const auto &one) {
        const auto &[from, to] = one;
        return moved[from] < 2 || tracked[from] != moved[from] || tracked[to];
    });
    return found;
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
    Contents contents(copy, files);
    std::map<std::string, std::string> found; // from, to
    for (const std::string &path : untracked) {
        Oid table;
        if (is_drawing_name(path)) {
            if (!zDrawingDetect(&table, copy.absolute(path).u16string().c_str())) continue;
            if (const auto at = tables.find(table); at != tables.end())
                found.emplace(at->second, path);
            continue;
        }
        if (std::string from = contents.take(path); !from.empty())
            found.emplace(std::move(from), path);
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
    const std::vector<Move> moves = find_moves(copy, gone, untracked);
    if (moves.empty()) return;
    const auto tell = [&host](const std::string &from, const std::string &to) {
        host.out.line(say("%s is %s now; \"zev mv\" with both names says so", typed_path(from),
                          typed_path(to)));
    };
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const auto directories = renamed_directories(copy, index.get(), moves);
    for (const auto &[from, to] : directories) tell(from, to);
    for (const Move &move : moves) {
        if (!directories.contains(above(move).from)) tell(move.from, move.to);
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
