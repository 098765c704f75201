// Blobs, and the ways of their bytes out of the store: written where the caller says, or put into
// the work directory, filtered, never through a link.
#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "objects/store/object.hpp"
#include "system/os.hpp"
#include "zev/object.h"
#include "zev/repository.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

using namespace zev;

namespace {

using FilterList = Owned<git_filter_list, git_filter_list_free>;

// Takes a blob's bytes, filtered or as they are, into an open file. libgit2 never calls `free` of
// a writer: it lives on the stack and the file has its own owner.
struct FileWriter : git_writestream {
    int file;
    int error = 0; // errno of the write that failed

    explicit FileWriter(int target) : git_writestream{put, finish, nullptr}, file(target) {}

    static int put(git_writestream *self, const char *bytes, size_t size) {
        auto *writer = static_cast<FileWriter *>(self);
        if (os::write_all(writer->file, bytes, size)) return 0;
        writer->error = errno;
        return -1;
    }
    static int finish(git_writestream *) { return 0; }
};

bool write_blob(int file, const Blob *blob, git_filter_list *filters) {
    FileWriter writer(file);
    int code = git_filter_list_stream_blob(filters, blob->handle.get(), &writer);
    if (writer.error) return fail_os(writer.error);
    return code < 0 ? fail_git(code) : true;
}

// Puts the blob in place of the file at the path. What stands there is replaced, a symbolic link
// too, never followed; a file that refuses writing is left alone.
bool replace_with(const Blob *blob, const zwchar *path, git_filter_list *filters) {
    struct stat status;
    if (os::lstat(path, &status) && S_ISREG(status.st_mode) && !os::writable(path))
        return fail_errno(path);
    os::Replacement aside(path);
    if (!aside) return fail_errno(path);
    if (!write_blob(aside.fd(), blob, filters)) return false;
    return aside.commit(false) ? true : fail_errno(path);
}

// The file as the mode says, for modes that keep what it holds.
bool write_into(const Blob *blob, const zwchar *path, const zwchar *mode) {
    struct stat status;
    if (os::lstat(path, &status) && S_ISLNK(status.st_mode)) return fail_os(ELOOP, path);
    Owned<FILE, fclose> file(os::open(path, mode));
    if (!file) return fail_errno(path);
    if (!write_blob(fileno(file.get()), blob, nullptr)) return false;
    return fclose(file.release()) == 0 ? true : fail_errno(path);
}

// A pipe or a device, also by the name of a link, as /dev/stdout is one: it takes the bytes.
bool takes_bytes(const zwchar *path) {
    struct stat status;
    return os::stat(path, &status) && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

bool write_through(const Blob *blob, const zwchar *path) {
    Owned<FILE, fclose> file(os::open(path, u"wb"));
    if (!file) return fail_errno(path);
    if (!write_blob(fileno(file.get()), blob, nullptr)) return false;
    return fclose(file.release()) == 0 ? true : fail_errno(path);
}

// A drawing is never converted, whatever an attribute says of all files.
bool load_filters(FilterList &filters, const Blob *blob, const char *name) {
    if (is_drawing_name(name)) return true;
    const int code =
        git_filter_list_load(out(filters), git_blob_owner(blob->handle.get()), blob->handle.get(),
                             name, GIT_FILTER_TO_WORKTREE, GIT_FILTER_DEFAULT);
    return code < 0 ? fail_git(code) : true;
}

// Makes the directories on the way to a file below the root, each a real one.
bool make_way(std::u16string full, size_t root) {
    for (size_t slash = full.find(u'/', root); slash != full.npos;
         slash = full.find(u'/', slash + 1)) {
        std::u16string directory = full.substr(0, slash);
        struct stat status;
        if (!os::lstat(directory.c_str(), &status)) {
            if (!os::make_dir(directory.c_str()) && errno != EEXIST)
                return fail_errno(directory.c_str());
            if (!os::lstat(directory.c_str(), &status)) return fail_errno(directory.c_str());
        }
        if (!S_ISDIR(status.st_mode)) return fail_os(ENOTDIR, directory.c_str());
    }
    return true;
}

} // namespace

namespace zev {

bool write_filtered(int file, const Blob *blob, const char *name) {
    FilterList filters;
    return load_filters(filters, blob, name) && write_blob(file, blob, filters.get());
}

} // namespace zev

Blob *zBlobByid(Repository *repository, const Oid *id) { return by_id<Blob>(repository, id); }
Blob *zBlobByprefix(Repository *repository, const Oid *prefix, uint64_t length) {
    return by_prefix<Blob>(repository, prefix, length);
}
Blob *zBlobBypath(Object *object, const zwchar *path) { return by_path<Blob>(object, path); }
Blob *zBlobPeel(Object *object) { return peel<Blob>(object); }
void zBlobFree(Blob *blob) { delete blob; }

const Oid *zBlobId(const Blob *blob) {
    return blob ? git::oid(git_blob_id(blob->handle.get())) : fail_args();
}
Repository *zBlobOwner(const Blob *blob) { return blob ? blob->owner : fail_args(); }
uint64_t zBlobSize(const Blob *blob) {
    if (!blob) return fail_args(), 0;
    return static_cast<uint64_t>(git_blob_rawsize(blob->handle.get()));
}
const void *zBlobData(const Blob *blob, uint64_t *size) {
    if (!blob) return fail_args();
    if (size) *size = zBlobSize(blob);
    return git_blob_rawcontent(blob->handle.get());
}

bool zBlobExport(Blob *blob, const zwchar *path, const zwchar *mode) {
    if (!blob || !path || !mode) return fail_args();
    os::Mode parsed;
    if (!os::Mode::parse(mode, &parsed)) return fail_errno(path);
    bool whole = parsed.truncate && !parsed.exclusive;
    if (whole && takes_bytes(path)) return write_through(blob, path);
    return whole ? replace_with(blob, path, nullptr) : write_into(blob, path, mode);
}

bool zBlobCheckout(Blob *blob, const zwchar *path) try {
    if (!blob || !path) return fail_args();
    const zwchar *root = zRepositoryWorkdir(blob->owner);
    if (!root) return false;
    std::u16string relative = path;
    std::ranges::replace(relative, u'\\', u'/');
    const std::string name = to_utf8(relative);
    if (!check_path(name)) return false;
    std::u16string full = std::u16string(root) + relative;
    if (full.size() >= Z_PATH_MAX - 1) return fail_os(ENAMETOOLONG, full.c_str());
    if (!make_way(full, zStrlenW(root))) return false;
    struct stat status;
    if (os::lstat(full.c_str(), &status) && !S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        return fail_os(EEXIST, full.c_str());
    FilterList filters;
    return load_filters(filters, blob, name.c_str()) &&
           replace_with(blob, full.c_str(), filters.get());
} catch (...) {
    return fail_thrown();
}
