// Entries of an index: making, reading, entering and removing them; names that differ in case.
#include "objects/work/index.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/pathspec.hpp"
#include "system/os.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>

using namespace zev;

namespace {

// An entry and its path in one block.
IndexEntry *make_entry(const git_index_entry &entry, const char *path) {
    const size_t length = strlen(path) + 1;
    auto *copy = static_cast<git_index_entry *>(malloc(sizeof(git_index_entry) + length));
    if (!copy) return fail_memory();
    *copy = entry;
    copy->path = static_cast<const char *>(memcpy(copy + 1, path, length));
    return reinterpret_cast<IndexEntry *>(copy);
}

// A regular file is never executable here: bits on disk differ between the systems of a team.
uint32_t mode_of(const struct stat &status) {
    if (S_ISREG(status.st_mode)) return GIT_FILEMODE_BLOB;
    if (S_ISLNK(status.st_mode)) return GIT_FILEMODE_LINK;
    return status.st_mode & 0111 ? GIT_FILEMODE_BLOB_EXECUTABLE : GIT_FILEMODE_BLOB;
}

Time *time_of(Time *out, const IndexEntry *entry, git_index_time git_index_entry::*field,
              Here at = {}) {
    if (!out || !entry) return fail_args(at);
    const git_index_time &time = git_entry(entry)->*field;
    *out = {time.seconds, time.nanoseconds};
    return out;
}

template <class T> T read_field(const IndexEntry *entry, T git_index_entry::*field, Here at = {}) {
    if (!entry) return fail_args(at), T{};
    return git_entry(entry)->*field;
}

// Not by git_index_has_conflicts, which looks at every entry.
bool is_conflicted(git_index *index, const char *path) {
    const git_index_entry *ancestor, *ours, *theirs;
    return !git_index_conflict_get(&ancestor, &ours, &theirs, index, path);
}

} // namespace

namespace zev {

void entry_set_stat(git_index_entry &entry, const struct stat &status) {
    entry.ctime = {static_cast<int32_t>(status.st_ctim.tv_sec),
                   static_cast<uint32_t>(status.st_ctim.tv_nsec)};
    entry.mtime = {static_cast<int32_t>(status.st_mtim.tv_sec),
                   static_cast<uint32_t>(status.st_mtim.tv_nsec)};
    entry.dev = static_cast<uint32_t>(status.st_rdev); // as libgit2 does
    entry.ino = static_cast<uint32_t>(status.st_ino);
    entry.uid = status.st_uid;
    entry.gid = status.st_gid;
    entry.file_size = static_cast<uint32_t>(status.st_size);
}

bool entry_has_stat(const git_index_entry &entry, const struct stat &status) {
    git_index_entry other = entry;
    entry_set_stat(other, status);
    const auto same_time = [](const git_index_time &a, const git_index_time &b) {
        return a.seconds == b.seconds && a.nanoseconds == b.nanoseconds;
    };
    return same_time(other.ctime, entry.ctime) && same_time(other.mtime, entry.mtime) &&
           other.ino == entry.ino && other.uid == entry.uid && other.gid == entry.gid &&
           other.file_size == entry.file_size;
}

bool entry_has_content(const git_index_entry &entry, struct stat status) {
    status.st_ctim = {entry.ctime.seconds, static_cast<long>(entry.ctime.nanoseconds)};
    return entry_has_stat(entry, status);
}

bool same_stat(const struct stat &a, const struct stat &b) {
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_mode == b.st_mode &&
           a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_ctim.tv_sec == b.st_ctim.tv_sec &&
           a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// ---- Names that differ in case only

uint64_t CaseNames::hash(std::string_view path) {
    fold_path(scratch_, path);
    return std::hash<std::u16string_view>{}(scratch_);
}

void CaseNames::build(git_index *index) {
    count_ = git_index_entrycount(index);
    hashes_.clear();
    hashes_.reserve(count_);
    for (size_t i = 0; i < count_; ++i) hashes_.insert(hash(git_index_get_byindex(index, i)->path));
}

// A hash beyond those of the path's own entries, which a conflict has, is only a hint. Paths come
// in order, as those of a directory that was copied under another case: the next twin is near.
bool CaseNames::has_twin(git_index *index, std::string_view path) {
    if (count_ != git_index_entrycount(index)) build(index);
    size_t others = hashes_.count(hash(path));
    const std::string name(path);
    for (int stage = 0; others && stage < 4; ++stage)
        if (git_index_get_bypath(index, name.c_str(), stage)) --others;
    if (!others) return false;
    const std::u16string wanted = scratch_;
    for (size_t i = 0, first = found_; i < count_; ++i) {
        found_ = (first + i) % count_;
        const char *other = git_index_get_byindex(index, found_)->path;
        if (path == other) continue;
        fold_path(scratch_, other);
        if (scratch_ == wanted) return true;
    }
    return false;
}

// Keep the count in step with changes of our own; after those of others the set is built anew.
void CaseNames::entered(git_index *index, std::string_view path, size_t added) {
    if (count_ + added != git_index_entrycount(index)) return;
    count_ += added;
    for (const uint64_t name = hash(path); added > 0; --added) hashes_.insert(name);
}

// Hashes go too: a name that comes back would be searched for among all entries.
void CaseNames::left(git_index *index, std::string_view path, size_t gone) {
    if (count_ != git_index_entrycount(index) + gone) return;
    count_ -= gone;
    for (const uint64_t name = hash(path); gone > 0; --gone)
        if (auto known = hashes_.find(name); known != hashes_.end()) hashes_.erase(known);
}

bool index_has_twin(Index *index, std::string_view path) {
    if (!index->names) index->names = std::make_shared<CaseNames>();
    return index->names->has_twin(index->handle.get(), path);
}

bool check_twin(Index *index, const char *path) {
    const bool known = git_index_get_bypath(index->handle.get(), path, 0);
    return known || !index_has_twin(index, path) || raise_exists(path);
}

// ---- Changes in memory

// What lay below goes by our own hand: libgit2 finds it only when no entry sorts before the path. A
// file in place of a directory above it finds itself.
bool index_enter(Index *index, const git_index_entry &entry) {
    git_index *handle = index->handle.get();
    if (git_index_entry_stage(&entry) == 0) {
        if (is_conflicted(handle, entry.path) && !index_drop(index, entry.path)) return false;
        if (!index_drop_below(index, entry.path)) return false;
    }
    int code = git_index_add(handle, &entry);
    if (code < 0) return fail_git(code);
    if (index->names) index->names->entered(handle, entry.path);
    return index->dirty = true;
}

// libgit2 does not tell whether there was an entry; the count does.
bool index_drop(Index *index, const char *path) {
    git_index *handle = index->handle.get();
    const size_t count = git_index_entrycount(handle);
    int code = git_index_remove_bypath(handle, path);
    if (code < 0) return fail_git(code);
    if (count == git_index_entrycount(handle)) return true;
    if (index->names) index->names->left(handle, path, count - git_index_entrycount(handle));
    return index->dirty = true;
}

bool index_drop_below(Index *index, std::string_view path) {
    const std::string prefix = std::string(path) + "/";
    std::vector<std::string> below;
    size_t at = 0;
    if (git_index_find_prefix(&at, index->handle.get(), prefix.c_str()) < 0) return true;
    while (const git_index_entry *entry = git_index_get_byindex(index->handle.get(), at++)) {
        if (!std::string_view(entry->path).starts_with(prefix)) break;
        below.emplace_back(entry->path);
    }
    // From the end: what lies behind an entry moves when it goes.
    for (auto name = below.rbegin(); name != below.rend(); ++name)
        if (!index_drop(index, name->c_str())) return false;
    return true;
}

} // namespace zev

// ---- Making

IndexEntry *zIndexEntryNew(const IndexEntry *entry) {
    if (!entry || !git_entry(entry)->path) return fail_args();
    return make_entry(*git_entry(entry), git_entry(entry)->path);
}

IndexEntry *zIndexEntryDup(const IndexEntry *entry) { return zIndexEntryNew(entry); }

void zIndexEntryFree(IndexEntry *entry) { free(entry); }

IndexEntry *zIndexEntryAsZev(void *entry) { return static_cast<IndexEntry *>(entry); }

void *zIndexEntryAsGit(IndexEntry *entry) { return entry; }

IndexEntry *zIndexEntryStat(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    const std::string name = to_utf8(path);
    git_index_entry entry{};
    struct stat status;
    if (!os::lstat(full_path(index->owner, name).c_str(), &status)) {
        if (errno == ENOENT) return fail_errno(path);
        return make_entry(entry, name.c_str());
    }
    if (S_ISDIR(status.st_mode)) return fail_os(EISDIR, path);
    entry_set_stat(entry, status);
    entry.mode = mode_of(status);
    return make_entry(entry, name.c_str());
} catch (...) {
    return fail_thrown();
}

bool zIndexEntrySetStage(IndexEntry *entry, int32_t stage) {
    if (!entry || stage < 0 || stage > 3) return fail_args();
    uint16_t &flags = git_entry(entry)->flags;
    flags = static_cast<uint16_t>((flags & ~GIT_INDEX_ENTRY_STAGEMASK) |
                                  stage << GIT_INDEX_ENTRY_STAGESHIFT);
    return true;
}

// ---- In an index

bool zIndexEntryAdd(Index *index, const IndexEntry *entry) try {
    if (!index || !entry || !git_entry(entry)->path) return fail_args();
    const git_index_entry &added = *git_entry(entry);
    if (!check_path(added.path) || !check_twin(index, added.path)) return false;
    return index_enter(index, added);
} catch (...) {
    return fail_thrown();
}

uint64_t zIndexEntryCount(const Index *index) {
    if (!index) return fail_args(), 0;
    return git_index_entrycount(index->handle.get());
}

const IndexEntry *zIndexEntryByindex(Index *index, uint64_t position) {
    if (!index) return fail_args();
    const git_index_entry *entry = git_index_get_byindex(index->handle.get(), position);
    if (!entry) return raise_not_found();
    return zev_entry(entry);
}

const IndexEntry *zIndexEntryBypath(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    const std::string name = to_utf8(path);
    for (int stage : {0, 2})
        if (auto *entry = git_index_get_bypath(index->handle.get(), name.c_str(), stage))
            return zev_entry(entry);
    return raise_not_found(path);
} catch (...) {
    return fail_thrown();
}

bool zIndexRemoveEntry(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    return index_drop(index, to_utf8(path).c_str());
} catch (...) {
    return fail_thrown();
}

bool zIndexRemoveDirectory(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    std::string name = to_utf8(path);
    while (name.ends_with('/')) name.pop_back();
    if (!git_index_find(nullptr, index->handle.get(), name.c_str())) return true;
    return index_drop_below(index, name);
} catch (...) {
    return fail_thrown();
}

// ---- Reading

Time *zIndexEntryCTime(Time *out, const IndexEntry *entry) {
    return time_of(out, entry, &git_index_entry::ctime);
}
Time *zIndexEntryMTime(Time *out, const IndexEntry *entry) {
    return time_of(out, entry, &git_index_entry::mtime);
}
uint32_t zIndexEntryDev(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::dev);
}
uint32_t zIndexEntryIno(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::ino);
}
uint32_t zIndexEntryMode(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::mode);
}
uint32_t zIndexEntryUID(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::uid);
}
uint32_t zIndexEntryGID(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::gid);
}
uint32_t zIndexEntrySize(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::file_size);
}
uint16_t zIndexEntryFlags(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::flags);
}
uint16_t zIndexEntryFlagsEx(const IndexEntry *entry) {
    return read_field(entry, &git_index_entry::flags_extended);
}

const Oid *zIndexEntryID(const IndexEntry *entry) {
    if (!entry) return fail_args();
    return git::oid(&git_entry(entry)->id);
}

const zwchar *zIndexEntryPath(const IndexEntry *entry) {
    if (!entry || !git_entry(entry)->path) return fail_args();
    return park(git_entry(entry)->path);
}

int32_t zIndexEntryStage(const IndexEntry *entry) {
    if (!entry) return fail_args(), -1;
    return git_index_entry_stage(git_entry(entry));
}

bool zIndexEntryIsConflict(const IndexEntry *entry) {
    if (!entry) return fail_args();
    return git_index_entry_is_conflict(git_entry(entry)) != 0;
}
