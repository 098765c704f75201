// How a file of the store comes to stand in the work directory: its bytes proven, aside or under a
// new name, and never in place of more than the caller knows of.
#include "objects/work/work_writer.hpp"

#include "common/errno.hpp"
#include "common/limits.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/loose_object.hpp"
#include "objects/store/object.hpp"
#include "objects/store/strict.hpp"
#include "objects/work/file_mode.hpp"
#include "system/os.hpp"
#include "zev/notify.h"
#include "zev/number.h"
#include "zev/object.h"
#include "zev/repository.h"

#include <cerrno>

#include <git2/sys/odb_backend.h>

namespace zev {

namespace {

constexpr size_t kLongestTarget = 4096; // of a link; no system takes more

mode_t mode_of(const git_index_entry &entry) { return entry.mode & 0100 ? 0777 : 0666; }

} // namespace

// A blob as a backend of the store gave it.
struct StoredBlob {
    git_odb_backend *backend = nullptr;
    void *bytes = nullptr;
    size_t size = 0;

    StoredBlob() = default;
    StoredBlob(const StoredBlob &) = delete;
    StoredBlob &operator=(const StoredBlob &) = delete;
    ~StoredBlob() {
        if (bytes) git_odb_backend_data_free(backend, bytes);
    }
};

bool WorkWriter::open() {
    if (odb_) return true;
    git_repository *handle = index_->owner->handle.get();
    if (const int code = git_repository_odb(out(odb_), handle); code < 0) return fail_git(code);
    objects_ = objects_directory(handle);
    rules_ = rules_of(index_->owner);
    return true;
}

bool WorkWriter::has(const git_oid &id) {
    if (!open()) return false;
    if (git_odb_exists(odb_.get(), &id)) return true;
    git_error_set_str(GIT_ERROR_ODB, "object not found");
    return fail_git(GIT_ENOTFOUND);
}

bool WorkWriter::place(git_index_entry entry, bool replaces) {
    if (!check_path(entry.path) || !open()) return false;
    const std::u16string full = full_path(index_->owner, entry.path);
    if (full.size() >= Z_PATH_MAX - 1) return fail_os(ENAMETOOLONG, full.c_str());
    if (!make_way(entry.path)) return false;
    if ((entry.mode & S_IFMT) == GIT_FILEMODE_COMMIT) return place_directory(entry, full, replaces);
    if (!write(entry, full, replaces)) return false;
    entry_set_stat(entry, status_);
    youngest_ = status_.st_mtim;
    if (!index_drop_below(index_, entry.path) || !index_enter(index_, entry)) return false;
    if (std::string_view(entry.path).ends_with(".gitattributes")) filters_ = Filters(index_);
    return true;
}

bool WorkWriter::enter_mode(git_index_entry entry) {
    if (!open()) return false;
    const std::u16string full = full_path(index_->owner, entry.path);
    os::Mode mode;
    mode.read = mode.no_link = true;
    const int fd = os::open_fd(full.c_str(), mode);
    if (fd < 0) return fail_errno(full.c_str());
    set_mode(fd, entry);
    const git_index_entry *staged = git_index_get_bypath(index_->handle.get(), entry.path, 0);
    const bool known = os::fd_stat(fd, &status_) || fail_errno(full.c_str());
    os::close_fd(fd);
    if (!known) return false;
    const bool is_other = staged && !entry_has_content(*staged, status_);
    if (is_other) return fail_os(EBUSY, full.c_str()); // saved since it was looked at
    entry_set_stat(entry, status_);
    return index_enter(index_, entry);
}

void WorkWriter::settle() const { os::wait_past(youngest_); }

// ---- Directories on the way

bool WorkWriter::is_behind_link(std::string_view path) {
    const size_t last = path.rfind('/');
    if (last == path.npos || directories_.contains(std::string(path.substr(0, last)))) return false;
    for (size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
        const std::string directory(path.substr(0, slash));
        struct stat status;
        if (directories_.contains(directory)) continue;
        if (!os::lstat(full_path(index_->owner, directory).c_str(), &status)) return false;
        if (S_ISLNK(status.st_mode)) return true;
        if (!S_ISDIR(status.st_mode)) return false;
        directories_.insert(directory);
    }
    return false;
}

bool WorkWriter::make_way(std::string_view path) {
    const size_t last = path.rfind('/');
    if (last == path.npos || directories_.contains(std::string(path.substr(0, last)))) return true;
    for (size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1))
        if (!make_directory(std::string(path.substr(0, slash)))) return false;
    return true;
}

bool WorkWriter::make_directory(const std::string &path) {
    if (directories_.contains(path)) return true;
    const std::u16string full = full_path(index_->owner, path);
    struct stat status;
    if (!os::make_dir(full.c_str())) {
        if (errno != EEXIST) return fail_errno(full.c_str());
        if (!os::lstat(full.c_str(), &status)) return fail_errno(full.c_str());
        if (!S_ISDIR(status.st_mode)) return fail_os(ENOTDIR, full.c_str());
    }
    directories_.insert(path);
    return true;
}

bool WorkWriter::place_directory(const git_index_entry &entry, const std::u16string &full,
                                 bool replaces) {
    struct stat there;
    const bool exists = os::lstat(full.c_str(), &there);
    if (!exists || !S_ISDIR(there.st_mode)) {
        if (exists && !can_replace(full, replaces)) return false;
        if (exists && !os::unlink(full.c_str())) return fail_errno(full.c_str());
        if (!os::make_dir(full.c_str())) return fail_errno(full.c_str());
    }
    const StrictOff partial; // its commit is of another repository
    return index_drop_below(index_, entry.path) && index_enter(index_, entry);
}

// ---- Files

// Whether a file may come to stand there: in place of a file that can be written, or of a link, if
// it replaces one. A pipe or a device is nobody's version of a file.
bool WorkWriter::can_replace(const std::u16string &full, bool replaces) {
    struct stat there;
    if (!os::lstat(full.c_str(), &there)) return true;
    const bool is_file = S_ISREG(there.st_mode);
    if (!replaces) return fail_os(EEXIST, full.c_str());
    if (!is_file && !S_ISLNK(there.st_mode)) return fail_os(ENOTSUP, full.c_str());
    return !is_file || os::writable(full.c_str()) || fail_os(EACCES, full.c_str());
}

bool WorkWriter::write(const git_index_entry &entry, const std::u16string &full, bool replaces) {
    if (S_ISLNK(entry.mode)) return write_link(entry, full, replaces);
    if (filters_.may_apply(entry.path)) return write_filtered(entry, full, replaces);
    return write_file(entry, full, replaces);
}

bool WorkWriter::write_filtered(const git_index_entry &entry, const std::u16string &full,
                                bool replaces) {
    const Owned<Blob, zBlobFree> blob(zBlobByid(index_->owner, git::oid(&entry.id)));
    return blob && write_aside(entry, full, replaces, [&](int fd) {
               return zev::write_filtered(fd, blob.get(), entry.path);
           });
}

bool WorkWriter::is_readonly(const git_index_entry &entry) {
    return rules_ && !zAuthdbEntryWritable(rules_.get(), to_wide(entry.path).c_str());
}

// Whoever may read it may run it, if the entry says so, and nobody writes it where the user may
// not. A file system that can't tell is let be.
void WorkWriter::set_mode(int fd, const git_index_entry &entry) {
    if (!os::fd_stat(fd, &status_)) return;
    const mode_t bits = status_.st_mode & 0777, run = (bits & 0444) >> 2;
    mode_t wanted = bits;
    if (bool(bits & 0100) != bool(entry.mode & 0100))
        wanted = entry.mode & 0100 ? bits | run : bits & ~mode_t{0111};
    if (is_readonly(entry)) wanted &= ~mode_t{0222};
    if (wanted != bits) os::fd_mode(fd, wanted);
}

// A small file that nobody had goes under its own name; one that was not written whole goes again.
// `fill` gets the descriptor, as below.
template <class F> bool WorkWriter::write_new(int fd, const std::u16string &full, F fill) {
    const bool whole = fill(fd) && (os::fd_stat(fd, &status_) || fail_errno(full.c_str()));
    os::close_fd(fd);
    if (!whole) os::unlink(full.c_str());
    return whole;
}

// The status is that after the renaming, which moves the change time.
template <class F>
bool WorkWriter::write_aside(const git_index_entry &entry, const std::u16string &full,
                             bool replaces, F fill) {
    if (!can_replace(full, replaces)) return false;
    os::Replacement aside(full.c_str());
    if (!aside) return fail_errno(full.c_str());
    if (!fill(aside.fd())) return false;
    set_mode(aside.fd(), entry);
    return (aside.commit(false, replaces) && os::fd_stat(aside.fd(), &status_)) ||
           fail_errno(full.c_str());
}

// Large ones that are loose go block by block; the others are read whole.
bool WorkWriter::write_file(const git_index_entry &entry, const std::u16string &full,
                            bool replaces) {
    LooseObject from;
    if (!is_loose(from, entry.id)) return write_stored(entry, full, replaces);
    if (!block_) block_.reset(new char[limits::step]);
    if (from.size() > limits::step)
        return write_aside(entry, full, replaces,
                           [&](int fd) { return stream(from, fd, entry.id, full.c_str()); });
    const int64_t got = from.read(block_.get(), from.size());
    if (got != static_cast<int64_t>(from.size())) return write_stored(entry, full, replaces);
    return write_whole(entry, full, replaces, block_.get(), from.size());
}

// One with a sound file of its own, then opened. The first backend that has an object is the one
// that would be asked.
bool WorkWriter::is_loose(LooseObject &object, const git_oid &id) {
    git_odb_backend *packs = nullptr;
    for (size_t n = 0; n < git_odb_num_backends(odb_.get()); ++n) {
        if (git_odb_get_backend(&packs, odb_.get(), n)) continue;
        if (!packs->readstream && packs->exists && packs->exists(packs, &id)) return false;
    }
    return object.open(objects_, id) == LooseObject::Found::sound &&
           object.type() == GIT_OBJECT_BLOB;
}

bool WorkWriter::write_stored(const git_index_entry &entry, const std::u16string &full,
                              bool replaces) {
    StoredBlob blob;
    int code = read(blob, entry.id);
    if (code == GIT_ENOTFOUND && !git_odb_refresh(odb_.get())) code = read(blob, entry.id);
    if (code < 0) return fail_git(code);
    return write_whole(entry, full, replaces, blob.bytes, blob.size);
}

// Its bytes are proven before a file is made.
bool WorkWriter::write_whole(const git_index_entry &entry, const std::u16string &full,
                             bool replaces, const void *bytes, size_t size) {
    if (!hash_begins(size) || EVP_DigestUpdate(hash_.get(), bytes, size) != 1) return fail_memory();
    if (!hash_ends(entry.id)) return false;
    const auto fill = [&](int fd) {
        return os::write_all(fd, bytes, size) || fail_errno(full.c_str());
    };
    if (replaces || aside_ || size > limits::step) return write_aside(entry, full, replaces, fill);
    os::Mode mode;
    mode.write = mode.create = mode.exclusive = mode.no_link = true;
    const mode_t taken = is_readonly(entry) ? 0222 : 0;
    const int fd = os::open_fd(full.c_str(), mode, mode_of(entry) & ~taken);
    return fd < 0 ? fail_errno(full.c_str()) : write_new(fd, full, fill);
}

// Past the store's own check of an object's bytes, since ours takes a fifth of the time.
int WorkWriter::read(StoredBlob &blob, const git_oid &id) {
    for (size_t n = 0; n < git_odb_num_backends(odb_.get()); ++n) {
        git_odb_backend *backend = nullptr;
        git_object_t type = GIT_OBJECT_INVALID;
        if (git_odb_get_backend(&backend, odb_.get(), n) || !backend->read) continue;
        const int code = backend->read(&blob.bytes, &blob.size, &type, backend, &id);
        if (code == GIT_ENOTFOUND || code == GIT_PASSTHROUGH) continue;
        if (code < 0) return code;
        blob.backend = backend;
        if (type == GIT_OBJECT_BLOB) return 0;
        git_error_set_str(GIT_ERROR_ODB, "object is no blob");
        return GIT_ENOTFOUND;
    }
    git_error_set_str(GIT_ERROR_ODB, "object not found");
    return GIT_ENOTFOUND;
}

bool WorkWriter::stream(LooseObject &from, int fd, const git_oid &id, const zwchar *full) {
    if (!hash_begins(from.size())) return fail_memory();
    uint64_t left = from.size();
    for (int64_t got; (got = from.read(block_.get(), limits::step)) > 0;) {
        const auto count = static_cast<size_t>(got);
        if (count > left) break;
        left -= count;
        if (!os::write_all(fd, block_.get(), count)) return fail_errno(full);
        if (EVP_DigestUpdate(hash_.get(), block_.get(), count) != 1) return fail_memory();
        if (notify_)
            zNotifyProgress(notify_, u"%s / %s", zNumToHumanBytes(from.size() - left),
                            zNumToHumanBytes(from.size()));
    }
    return hash_ends(id); // of damaged bytes too
}

bool WorkWriter::hash_begins(uint64_t size) {
    if (!hash_) hash_.reset(EVP_MD_CTX_new());
    const std::string head = "blob " + std::to_string(size);
    return hash_ && EVP_DigestInit_ex(hash_.get(), EVP_sha1(), nullptr) == 1 &&
           EVP_DigestUpdate(hash_.get(), head.c_str(), head.size() + 1) == 1;
}

bool WorkWriter::hash_ends(const git_oid &id) {
    git_oid found;
    if (EVP_DigestFinal_ex(hash_.get(), found.id, nullptr) == 1 && git_oid_equal(&found, &id))
        return true;
    git_error_set_str(GIT_ERROR_ODB, "object hash mismatch");
    return fail_git(GIT_EMISMATCH);
}

bool WorkWriter::write_link(const git_index_entry &entry, const std::u16string &full,
                            bool replaces) {
    if (!can_replace(full, replaces)) return false;
    git::OdbObject object;
    size_t size = 0;
    git_object_t type;
    int code = git_odb_read_header(&size, &type, odb_.get(), &entry.id);
    if (!code && size >= kLongestTarget) return raise_args(entry.path);
    if (!code) code = git_odb_read(out(object), odb_.get(), &entry.id);
    if (code < 0) return fail_git(code);
    const std::string target(static_cast<const char *>(git_odb_object_data(object.get())),
                             git_odb_object_size(object.get()));
    if (target.empty() || target.find('\0') != target.npos) return raise_args(entry.path);
    return (os::make_link(full.c_str(), target, replaces) && os::lstat(full.c_str(), &status_)) ||
           fail_errno(full.c_str());
}

} // namespace zev
