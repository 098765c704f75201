#include "objects/work_writer.hpp"

#include "common/limits.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "system/errno.hpp"
#include "system/os.hpp"
#include "zev/object.h"
#include "zev/repository.h"

#include <cerrno>

namespace zev {

namespace {

constexpr size_t kLongestTarget = 4096; // of a link; no system takes more

mode_t mode_of(const git_index_entry &entry) { return entry.mode & 0100 ? 0777 : 0666; }

} // namespace

bool WorkWriter::place(git_index_entry entry) {
    if (!check_path(entry.path)) return false;
    if (!odb_) {
        const int code = git_repository_odb(out(odb_), index_->owner->handle.get());
        if (code < 0) return fail_git(code);
    }
    const std::u16string full = full_path(index_->owner, entry.path);
    if (full.size() >= Z_PATH_MAX - 1) return errno = ENAMETOOLONG, fail_errno(full.c_str());
    if (!make_way(entry.path) || !write(entry, full)) return false;
    entry_set_stat(entry, status_);
    return index_drop_below(index_, entry.path) && index_enter(index_, entry);
}

// ---- Directories on the way

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
        if (!S_ISDIR(status.st_mode)) return errno = ENOTDIR, fail_errno(full.c_str());
    }
    directories_.insert(path);
    return true;
}

// ---- Files

bool WorkWriter::write(const git_index_entry &entry, const std::u16string &full) {
    if (S_ISLNK(entry.mode)) return write_link(entry, full);
    if (!filters_.may_apply(entry.path)) return write_file(entry, full);
    return write_filtered(entry) && (os::lstat(full.c_str(), &status_) || fail_errno(full.c_str()));
}

bool WorkWriter::write_filtered(const git_index_entry &entry) {
    const Owned<Blob, zBlobFree> blob(zBlobByid(index_->owner, git::oid(&entry.id)));
    return blob && zBlobCheckout(blob.get(), to_wide(entry.path).c_str());
}

bool WorkWriter::write_bytes(int fd, const void *bytes, size_t size, const zwchar *full) {
    return (os::write_all(fd, bytes, size) && os::fd_stat(fd, &status_)) || fail_errno(full);
}

// In place of a file that is there aside, where there is none under its own name: one that was not
// written whole goes again. `fill` gets the descriptor.
template <class F>
bool WorkWriter::with_file(const git_index_entry &entry, const std::u16string &full, F fill) {
    os::Mode mode;
    mode.write = mode.create = mode.exclusive = mode.no_link = true;
    const int fd = os::open_fd(full.c_str(), mode, mode_of(entry));
    if (fd >= 0) {
        const bool whole = fill(fd);
        os::close_fd(fd);
        if (!whole) os::unlink(full.c_str());
        return whole;
    }
    struct stat status;
    if (errno != EEXIST || !os::lstat(full.c_str(), &status)) return fail_errno(full.c_str());
    if (S_ISREG(status.st_mode) && !os::writable(full.c_str()))
        return errno = EACCES, fail_errno(full.c_str());
    os::Replacement aside(full.c_str(), S_ISREG(status.st_mode) ? 0 : mode_of(entry));
    if (!aside) return fail_errno(full.c_str());
    if (!fill(aside.fd())) return false;
    return aside.commit(false) || fail_errno(full.c_str());
}

// Large objects come block by block where the store can do that; those of a pack it can't.
bool WorkWriter::write_file(const git_index_entry &entry, const std::u16string &full) {
    size_t size = 0;
    git_object_t type = GIT_OBJECT_INVALID;
    int code = git_odb_read_header(&size, &type, odb_.get(), &entry.id);
    if (code < 0) return fail_git(code);
    if (type != GIT_OBJECT_BLOB) return zRaiseInvalidArgs(u"%hs", entry.path), false;
    if (size > limits::step) {
        git::OdbStream from;
        size_t length = 0;
        if (!git_odb_open_rstream(out(from), &length, &type, odb_.get(), &entry.id))
            return with_file(entry, full,
                             [&](int fd) { return stream(from.get(), fd, size, full.c_str()); });
        git_error_clear();
    }
    git::OdbObject object;
    code = git_odb_read(out(object), odb_.get(), &entry.id);
    if (code < 0) return fail_git(code);
    return with_file(entry, full, [&](int fd) {
        return write_bytes(fd, git_odb_object_data(object.get()), git_odb_object_size(object.get()),
                           full.c_str());
    });
}

bool WorkWriter::stream(git_odb_stream *from, int fd, uint64_t size, const zwchar *full) {
    std::vector<char> block(limits::step);
    for (uint64_t left = size; left;) {
        const int got = git_odb_stream_read(from, block.data(), block.size());
        if (got < 0) return fail_git(got);
        if (!got || static_cast<uint64_t>(got) > left) return errno = EIO, fail_errno(full);
        if (!write_bytes(fd, block.data(), static_cast<size_t>(got), full)) return false;
        left -= static_cast<uint64_t>(got);
    }
    return true;
}

bool WorkWriter::write_link(const git_index_entry &entry, const std::u16string &full) {
    git::OdbObject object;
    const int code = git_odb_read(out(object), odb_.get(), &entry.id);
    if (code < 0) return fail_git(code);
    const std::string target(static_cast<const char *>(git_odb_object_data(object.get())),
                             git_odb_object_size(object.get()));
    if (target.empty() || target.size() >= kLongestTarget || target.find('\0') != target.npos)
        return zRaiseInvalidArgs(u"%hs", entry.path), false;
    return (os::make_link(full.c_str(), target) && os::lstat(full.c_str(), &status_)) ||
           fail_errno(full.c_str());
}

} // namespace zev
