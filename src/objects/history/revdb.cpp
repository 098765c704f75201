// The database of revisions: a directory of JSON files.
//
// <Git directory>/revisions/<2 hex>/<38 hex>    one file a commit, form in revision_json.cpp
//
// A record is written aside and renamed into place, and never written over. That is not synced: a
// record that a crash emptied doesn't parse, and history makes it anew from the commit.
#include "objects/history/revision.hpp"

#include "common/errno.hpp"
#include "common/limits.hpp"
#include "system/os.hpp"
#include "zev/dir.h"
#include "zev/oid.h"
#include "zev/path.h"
#include "zev/repository.h"
#include "zev/stream.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

using namespace zev;

namespace {

constexpr const zwchar *kEnd = nullptr; // of a list of path components
constexpr zwchar kDirectory[] = u"revisions";

bool record_path(zwchar *path, const Revdb *db, const Oid *id) {
    const zwchar *root = zRepositoryPath(db->owner);
    return root && zPathBuild(path, root, kDirectory, kEnd) && zOidPathAppend(path, id);
}

bool is_record(const zwchar *path) {
    struct stat status;
    return os::stat(path, &status) && S_ISREG(status.st_mode);
}

// ---- Reading

using File = Owned<FILE, fclose>;

Lookup refused(const zwchar *path) {
    if (errno == ENOENT || (errno == EACCES && !is_record(path))) // a directory can't be opened
        return raise_not_found(path), Lookup::missing;
    if (errno == EACCES)
        raise_locked(path);
    else
        fail_errno(path);
    return Lookup::failed;
}

// The bytes of a record, by one read. What is renamed into place needs no lock against its writer;
// only who holds it against readers is respected.
Lookup read_record(const zwchar *path, std::string &bytes) {
    const File file(os::open(path, u"rb"));
    struct stat status;
    if (!file || !os::fd_stat(fileno(file.get()), &status)) return refused(path);
    if (!S_ISREG(status.st_mode)) return raise_not_found(path), Lookup::missing;
    if (!os::share_readable(fileno(file.get()))) return refused(path);
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size > limits::record_bytes) return fail_args(), Lookup::damaged;
    bytes.resize(size);
    setvbuf(file.get(), nullptr, _IONBF, 0);
    return fread(bytes.data(), 1, size, file.get()) == size ? Lookup::whole : refused(path);
}

// ---- Writing

// The directory is missing for the first record of 256 only.
bool open_aside(std::optional<os::Replacement> &file, const zwchar *path) {
    file.emplace(path);
    if (*file) return true;
    zwchar directory[Z_PATH_MAX];
    if (errno != ENOENT || !zPathRemoveName(directory, path) || !zDirMake(directory, true))
        return false;
    file.emplace(path);
    return static_cast<bool>(*file);
}

bool write_record(const zwchar *path, Revision *revision) {
    const JsonGuard json = revision_to_json(revision);
    if (!json || is_record(path)) return false; // which taking the changes may have written
    std::optional<os::Replacement> file;
    if (!open_aside(file, path)) return false;
    const Owned<Stream, zStreamFree> stream(zStdioStream(file->file()));
    return stream && zJsonWriteStream(json.get(), stream.get()) && file->commit(false);
}

} // namespace

Lookup zev::find_record(const Revdb *db, const Oid *id, RevisionPtr &found) {
    zwchar path[Z_PATH_MAX];
    if (!record_path(path, db, id)) return Lookup::failed;
    std::string bytes;
    if (const Lookup fate = read_record(path, bytes); fate != Lookup::whole) return fate;
    found = revision_from_text(db->owner, bytes);
    return found ? Lookup::whole : Lookup::damaged;
}

Revdb *zRevdbOpen(Repository *repository) {
    if (!repository) return fail_args();
    auto *db = static_cast<Revdb *>(malloc(sizeof(Revdb)));
    if (!db) return fail_memory();
    *db = {repository};
    return db;
}

void zRevdbFree(Revdb *db) { free(db); }
Repository *zRevdbOwner(const Revdb *db) { return db ? db->owner : fail_args(); }

bool zRevdbDestroy(Repository *repository) {
    if (!repository) return fail_args();
    zwchar path[Z_PATH_MAX];
    const zwchar *root = zRepositoryPath(repository);
    return root && zPathBuild(path, root, kDirectory, kEnd) && zDirRemove(path, true, true);
}

bool zRevdbExists(const Revdb *db, const Oid *id) {
    if (!db || !id) return fail_args();
    zwchar path[Z_PATH_MAX];
    return record_path(path, db, id) && is_record(path);
}

Revision *zRevdbLookup(const Revdb *db, const Oid *id) try {
    if (!db || !id) return fail_args();
    RevisionPtr found;
    find_record(db, id, found);
    return found.release();
} catch (...) {
    return fail_thrown();
}

DiffList *zRevdbChanges(const Revdb *db, const Oid *id) {
    const RevisionPtr found(zRevdbLookup(db, id));
    return found ? found->changes.release() : nullptr;
}

bool zRevdbInsert(Revdb *db, const Oid *id, Revision *revision) try {
    if (!db || !id || !revision) return fail_args();
    zwchar path[Z_PATH_MAX];
    if (record_path(path, db, id) && !is_record(path)) write_record(path, revision);
    return true;
} catch (...) {
    return true; // like any other failure to write
}

bool zRevdbRemove(Revdb *db, const Oid *id) {
    if (!db || !id) return fail_args();
    zwchar path[Z_PATH_MAX];
    if (!record_path(path, db, id)) return false;
    if (os::unlink(path)) return true;
    const bool missing = errno == ENOENT;
    return fail_system(path) || missing;
}
