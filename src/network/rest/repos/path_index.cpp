// <repository>/paths/<n>/    a LevelDB database; each process has the first whose lock is free
//   'f' id 20 path    a commit named the file by the path; UTF-8 behind the id
//   't' id 20 path    likewise the table of a drawing
//   'p' path          any file
//   'm' id 20 path    a drawing that isn't here yet, whose table is not known
//   'c' id 20         a commit; it and all before it are in
//   "tips"            value: ids of all references, sorted, when they were last looked at
//
// Nothing is synced, and what a crash took is made anew. What holds: marks of commits and tips are
// stored last, so that a commit never counts without its paths.
#include "network/rest/repos/path_index.hpp"

#include "common/limits.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/reference.hpp"
#include "system/os.hpp"
#include "zev/manifest.h"
#include "zev/oid.h"
#include "zev/str.h"

#include <algorithm>
#include <cstring>
#include <list>
#include <unordered_set>

namespace zev::rest {

namespace {

constexpr int kSharers = 8; // processes that serve one directory
constexpr size_t kOpen = 4; // indexes held open by a process
constexpr size_t kBuffer = 1u << 20;
constexpr std::string_view kTips = "tips";

std::string_view raw(const void *id) { return {static_cast<const char *>(id), sizeof(Oid)}; }

std::string key_of(char kind, std::string_view id, std::string_view path = {}) {
    return std::string(1, kind).append(id).append(path);
}

struct OpenIndexes {
    std::mutex mutex;
    std::list<std::pair<std::u16string, PathIndex>> latest; // by repository, the last used first
};
OpenIndexes &open_indexes() {
    static OpenIndexes indexes;
    return indexes;
}

// The ids of all references, each once, sorted. Not without one that can't be read: what it led to
// would count as what no commit names.
bool read_tips(git_repository *repository, std::vector<std::string> &tips) {
    struct Walk {
        git_repository *repository;
        std::vector<std::string> *tips;
        std::unordered_set<std::string> names{};
    } walk{repository, &tips};
    git_oid head;
    const int code = git_reference_foreach_name(
        repository,
        [](const char *name, void *context) {
            auto *self = static_cast<Walk *>(context);
            git_oid id;
            if (!git_reference_name_to_id(&id, self->repository, name))
                self->tips->emplace_back(raw(&id));
            self->names.insert(name);
            return 0;
        },
        &walk);
    if (code < 0) return fail_git(code);
    if (!find_damaged_reference(repository, walk.names).empty()) return false;
    if (!git_reference_name_to_id(&head, repository, "HEAD")) tips.emplace_back(raw(&head));
    std::ranges::sort(tips);
    tips.erase(std::unique(tips.begin(), tips.end()), tips.end());
    return true;
}

ldb::Database open_database(const std::u16string &directory, ldb::Text &error) {
    os::make_dirs(directory.c_str());
    const ldb::Options options{leveldb_options_create()};
    leveldb_options_set_create_if_missing(options.get(), 1);
    leveldb_options_set_write_buffer_size(options.get(), kBuffer);
    return ldb::Database{leveldb_open(options.get(), to_utf8(directory).c_str(), out(error))};
}

} // namespace

// ---- Drawings

int find_table(Repository *repository, const Oid &id, std::optional<Oid> &table) {
    git::Blob blob;
    const int code = git_blob_lookup(out(blob), repository->handle.get(), git::oid(&id));
    if (code < 0) return code;
    Manifest manifest{};
    if (!zManifestRead(&manifest, git_blob_rawcontent(blob.get()), git_blob_rawsize(blob.get())))
        return 0;
    const Finally freed([&] { zManifestDeinit(&manifest); });
    table = manifest.table;
    return 0;
}

// ---- Opening

bool PathIndex::open_in(const std::u16string &directory) {
    for (int n = 0; n < kSharers && !database_; ++n) {
        ldb::Text error;
        directory_ = directory + std::u16string(1, static_cast<char16_t>(u'0' + n));
        database_ = open_database(directory_, error);
        if (database_ || std::string_view(error.get()).starts_with("IO error: lock ")) continue;
        os::remove_tree(directory_.c_str(), false); // damaged: it is made anew
        database_ = open_database(directory_, error);
        if (!database_) return fail_store(error.get());
    }
    reading_.reset(leveldb_readoptions_create());
    writing_.reset(leveldb_writeoptions_create());
    batch_.reset(leveldb_writebatch_create());
    marks_.reset(leveldb_writebatch_create());
    return database_ ? os::stat(directory_.c_str(), &status_) : fail_store("all are in use");
}

bool PathIndex::is_there() const {
    struct stat now;
    return os::stat(directory_.c_str(), &now) && now.st_dev == status_.st_dev &&
           now.st_ino == status_.st_ino;
}

// One that was renamed or removed with its project is let go first, since the system's lock holds
// no second handle of the same process back.
PathIndex::Lease PathIndex::open(Repository *repository) {
    OpenIndexes &indexes = open_indexes();
    Lease lease{std::unique_lock(indexes.mutex), nullptr};
    auto &latest = indexes.latest;
    latest.remove_if([](const auto &each) { return !each.second.is_there(); });
    const zwchar *path = zRepositoryPath(repository);
    if (!path) return lease;
    const auto found =
        std::ranges::find_if(latest, [&](const auto &each) { return each.first == path; });
    if (found != latest.end()) {
        latest.splice(latest.begin(), latest, found);
    } else {
        while (latest.size() >= kOpen) latest.pop_back();
        latest.emplace_front();
        latest.front().first = path;
        std::u16string directory(path);
        if (directory.back() != u'/') directory += u'/';
        if (!latest.front().second.open_in(directory + u"paths/"))
            return latest.pop_front(), std::move(lease);
    }
    lease.index = &latest.front().second;
    return lease;
}

// ---- Rows

std::string PathIndex::get(std::string_view key) {
    size_t length = 0;
    ldb::Text error;
    const ldb::Text value{
        leveldb_get(database_.get(), reading_.get(), key.data(), key.size(), &length, out(error))};
    return value ? std::string(value.get(), length) : std::string();
}

void PathIndex::put(std::string_view key) {
    leveldb_writebatch_put(batch_.get(), key.data(), key.size(), "", 0);
    held_ += key.size();
    if (held_ < kBuffer) return;
    ldb::Text error; // of a write that failed the last one tells
    leveldb_write(database_.get(), writing_.get(), batch_.get(), out(error));
    if (error) return;
    leveldb_writebatch_clear(batch_.get());
    held_ = 0;
}

bool PathIndex::store(std::string_view tips) {
    leveldb_writebatch_append(batch_.get(), marks_.get());
    leveldb_writebatch_put(batch_.get(), kTips.data(), kTips.size(), tips.data(), tips.size());
    ldb::Text error;
    leveldb_write(database_.get(), writing_.get(), batch_.get(), out(error));
    return error ? fail_store(error.get()) : true;
}

bool PathIndex::each_key(std::string_view prefix, const Visit &visit) {
    const ldb::Iterator iter{leveldb_create_iterator(database_.get(), reading_.get())};
    leveldb_iter_seek(iter.get(), prefix.data(), prefix.size());
    for (; leveldb_iter_valid(iter.get()); leveldb_iter_next(iter.get())) {
        size_t length = 0;
        const char *key = leveldb_iter_key(iter.get(), &length);
        const std::string_view text(key, length);
        if (!text.starts_with(prefix) || visit(text.substr(prefix.size()))) break;
    }
    ldb::Text error;
    leveldb_iter_get_error(iter.get(), out(error));
    return error ? fail_store(error.get()) : true;
}

bool PathIndex::each_path(Kind kind, const Oid &id, const Visit &visit) {
    return each_key(key_of(static_cast<char>(kind), raw(&id)), visit);
}

bool PathIndex::each_path(const Visit &visit) { return each_key("p", visit); }

// ---- Taking in

void PathIndex::add_table(Repository *repository, const Oid &id, std::string_view path) {
    std::optional<Oid> table;
    if (find_table(repository, id, table) < 0) return put(key_of('m', raw(&id), path));
    if (table) put(key_of('t', raw(&*table), path));
}

void PathIndex::add_side(Repository *repository, const DiffFile *file) {
    if (!file || !file->path || zOidIsZero(&file->id)) return;
    const std::string path = to_utf8(file->path.get());
    put(key_of('f', raw(&file->id), path));
    put("p" + path);
    if (is_drawing_name(path)) add_table(repository, file->id, path);
}

bool PathIndex::add_commit(Revdb *db, Commit &commit) {
    const RevisionPtr revision = kept_revision(db, commit);
    if (!revision || !revision->changes) return false;
    const Vector &changes = revision->changes->entries;
    for (uint64_t n = 0; n < zVectorSize(&changes); ++n) {
        const auto *entry = static_cast<DiffEntry *const *>(zVectorDataConst(&changes))[n];
        add_side(commit.owner, entry->new_file.get());
        add_side(commit.owner, entry->old_file.get());
    }
    const std::string key = key_of('c', raw(git_commit_id(commit.handle.get())));
    leveldb_writebatch_put(marks_.get(), key.data(), key.size(), "1", 1);
    return true;
}

// All that leads to a commit and isn't in yet; a parent that was never fetched names nothing.
bool PathIndex::add_history(Repository *repository, const git_oid &tip) {
    git::Object found, peeled;
    int code = git_object_lookup(out(found), repository->handle.get(), &tip, GIT_OBJECT_ANY);
    if (code < 0) return fail_git(code);
    if (git_object_peel(out(peeled), found.get(), GIT_OBJECT_COMMIT) < 0) return true;
    const RevdbPtr db(zRevdbOpen(repository));
    std::vector<std::string> pending{std::string(raw(git_object_id(peeled.get())))};
    std::unordered_set<std::string> seen{pending.front()};
    while (db && !pending.empty()) {
        const std::string id = std::move(pending.back());
        pending.pop_back();
        Commit commit{nullptr, repository};
        if (!get(key_of('c', id)).empty()) continue;
        code = git_commit_lookup(out(commit.handle), repository->handle.get(),
                                 reinterpret_cast<const git_oid *>(id.data()));
        if (code == GIT_ENOTFOUND) continue;
        if (code < 0) return fail_git(code);
        if (!add_commit(db.get(), commit)) return false;
        for (unsigned n = 0; n < git_commit_parentcount(commit.handle.get()); ++n) {
            std::string parent(raw(git_commit_parent_id(commit.handle.get(), n)));
            if (seen.insert(parent).second) pending.push_back(std::move(parent));
        }
    }
    return db != nullptr;
}

// Nobody could look at it when it got its path: it must not open a table that others have.
void PathIndex::add_late(Repository *repository, const Oid &id, std::string_view path) {
    std::optional<Oid> table;
    const int code = find_table(repository, id, table);
    if (code < 0 && code != GIT_ENOTFOUND) return;
    const std::string key = key_of('m', raw(&id), path);
    leveldb_writebatch_delete(batch_.get(), key.data(), key.size());
    held_ += key.size();
    bool named = false;
    const auto see = [&](std::string_view) { return named = true; };
    if (table && each_path(Kind::table, *table, see) && !named)
        put(key_of('t', raw(&*table), path));
}

// Drawings that were named before they came, after one look at what others have stored meanwhile.
void PathIndex::retry_missing(Repository *repository) {
    std::vector<std::string> missing;
    each_key("m", [&](std::string_view rest) { return missing.emplace_back(rest), false; });
    if (missing.empty()) return;
    git::Odb odb;
    int code = git_repository_odb(out(odb), repository->handle.get());
    if (code >= 0) code = git_odb_refresh(odb.get());
    if (code < 0) return git_error_clear();
    for (const std::string &rest : missing) {
        Oid id;
        memcpy(id.id, rest.data(), sizeof id.id);
        if (is_stored(odb.get(), git::oid(&id)))
            add_late(repository, id, std::string_view(rest).substr(sizeof id.id));
    }
}

bool PathIndex::refresh(Repository *repository) {
    leveldb_writebatch_clear(batch_.get());
    leveldb_writebatch_clear(marks_.get());
    held_ = 0;
    std::vector<std::string> tips;
    if (!read_tips(repository->handle.get(), tips)) return false;
    std::string joined;
    for (const std::string &tip : tips) joined += tip;
    retry_missing(repository);
    const bool is_current = joined == get(kTips);
    if (is_current && !held_) return true;
    for (const std::string &tip : tips)
        if (!is_current && !add_history(repository, *reinterpret_cast<const git_oid *>(tip.data())))
            return false;
    return store(joined);
}

} // namespace zev::rest
