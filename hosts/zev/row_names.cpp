// What could name a row is told by its first bytes, not by its name or by who has it: a copy of a
// drawing in a backup directory of the user's counts, as does a commit that no branch leads to.
//
//   a manifest begins with "VANE ZEV"
//
// The Git directory holds the trash, what a merge put aside, and what was begun; its tables and the
// files of its store don't count as files. Behind symbolic links nothing is looked at, as nothing
// of the library's is done there.
#include "row_names.hpp"

#include "bytes.hpp"
#include "dxf/rows.hpp"
#include "refs.hpp"
#include "say.hpp"

#include <algorithm>
#include <fstream>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kMagic = "VANE ZEV"; // whatever stands behind
constexpr uint64_t kPoll = 256;  // files or objects between two looks at the user's break
constexpr size_t kSortAt = 4096; // keys that came, before they are sorted at all

bool same(const DrawingKey &a, const DrawingKey &b) { return zDrawingKeyEqual(&a, &b); }

void look_around(const Notify *notify, const char *what, uint64_t count) {
    if (count % kPoll) return;
    stop_on_break(notify);
    zNotifyProgress(notify, u"%s", wide(say(what, count)).c_str());
}

} // namespace

void RowNames::Keys::sort() {
    if (sorted == all.size()) return;
    std::sort(all.begin(), all.end(), dxf::before);
    all.erase(std::unique(all.begin(), all.end(), same), all.end());
    sorted = all.size();
}

RowNames::RowNames(const WorkingCopy &copy, const Notify *notify)
    : repository_(copy.repository()), notify_(notify) {
    const fs::path git = shared_directory(copy);
    read_directory(copy.root(), false);
    read_directory(git, true);
    read_worktrees(git);
    read_store(); // last: what is committed meanwhile was a file before
    for (auto &[table, keys] : tables_) keys.sort();
}

bool RowNames::has(const Oid &table, const DrawingKey &key) const {
    const auto found = tables_.find(table);
    if (found == tables_.end()) return false;
    const std::vector<DrawingKey> &keys = found->second.all;
    return std::binary_search(keys.begin(), keys.end(), key, dxf::before);
}

void RowNames::miss(const std::string &why) {
    if (!unseen_) unseen_ = why;
}

// Versions of a drawing have nearly the same keys: they are put together now and then, so that no
// more than twice of what counts is held.
void RowNames::add(std::string_view bytes, const std::string &where) {
    if (!bytes.starts_with(kMagic)) return;
    ::Manifest read{};
    if (!zManifestRead(&read, bytes.data(), bytes.size()))
        return miss(say("%s: a drawing that can't be read", where));
    const Owned<::Manifest, zManifestDeinit> guard(&read);
    Keys &keys = tables_[read.table];
    keys.all.insert(keys.all.end(), {read.header, read.summary, read.ds, read.vba});
    DrawingKey key;
    for (uint64_t i = 0; i < read.class_count && zManifestKey(&key, read.classes, i); ++i)
        keys.all.push_back(key);
    for (uint64_t i = 0; i < read.object_count && zManifestKey(&key, read.objects, i); ++i)
        keys.all.push_back(key);
    if (keys.all.size() > 2 * keys.sorted + kSortAt) keys.sort();
}

// ---- Files

void RowNames::read_file(const fs::path &file) {
    std::ifstream in(file, std::ios::binary);
    std::string bytes(kMagic.size(), '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!in.eof() && !in.good()) {
        std::error_code error;
        if (fs::exists(file, error) || error) miss(say("%s: can't be read", file.string()));
        return;
    }
    if (bytes != kMagic) return;
    bytes.append(std::istreambuf_iterator<char>(in), {});
    if (in.bad()) return miss(say("%s: can't be read", file.string()));
    add(bytes, file.string());
}

void RowNames::read_directory(const fs::path &directory, bool is_git) {
    std::error_code error;
    uint64_t count = 0;
    for (fs::recursive_directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        look_around(notify_, "looking at file %s", ++count);
        std::error_code gone;
        const fs::file_status status = at->symlink_status(gone);
        if (gone && gone != std::errc::no_such_file_or_directory)
            miss(say("%s: can't be read: %s", at->path().string(), gone.message()));
        const std::string name = at->path().filename().string();
        const bool is_store = is_git && at.depth() == 0 && (name == "objects" || name == "tables");
        if (status.type() == fs::file_type::directory) {
            if (is_store || (!is_git && name == ".git")) at.disable_recursion_pending();
        } else if (status.type() == fs::file_type::regular) {
            read_file(at->path());
        }
    }
    if (error) miss(say("%s: can't be read: %s", directory.string(), error.message()));
}

// <Git directory>/worktrees/<name>/gitdir is the path of the ".git" of a linked work directory.
void RowNames::read_worktrees(const fs::path &git) {
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(git / "worktrees", error)) {
        std::ifstream in(entry.path() / "gitdir");
        std::string line;
        std::getline(in, line);
        const fs::path place = (entry.path() / line).lexically_normal().parent_path();
        std::error_code gone;
        if (!line.empty() && fs::is_regular_file(place / ".git", gone))
            read_directory(place, false);
        else
            miss(say("%s: a linked work directory that is not there", place.string()));
    }
    if (error && error != std::errc::no_such_file_or_directory)
        miss(say("%s: can't be read: %s", (git / "worktrees").string(), error.message()));
}

// ---- The store

void RowNames::read_store() {
    const OwnedOdb odb(check(zOdbOpen(repository_)));
    struct List {
        std::vector<Oid> ids;
        bool is_whole = true;
    } list;
    const OdbCallback add_id = [](const Oid *id, void *to) {
        List &list = *static_cast<List *>(to);
        try {
            list.ids.push_back(*id);
        } catch (...) {
            list.is_whole = false;
        }
        return list.is_whole;
    };
    std::vector<Oid> &ids = list.ids;
    check(zOdbForeach(odb.get(), add_id, &list));
    if (!list.is_whole) throw std::bad_alloc();
    std::sort(ids.begin(), ids.end(), OidLess());
    ids.erase(std::unique(ids.begin(), ids.end(), OidEqual()), ids.end());
    Bytes bytes;
    uint64_t count = 0;
    for (const Oid &id : ids) {
        look_around(notify_, "looking at object %s", ++count);
        const int32_t type = zOdbType(odb.get(), &id);
        if (type != Z_OBJECT_BLOB && type != -1) continue;
        bytes.data.clear();
        bytes.failed = false;
        if (type == -1 || !zOdbRead(odb.get(), &id, &bytes))
            miss(say("object %s: can't be read", hex(&id)));
        else
            add(bytes.data, say("object %s", hex(&id)));
    }
}

} // namespace host
