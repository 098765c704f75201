// Changing what is tracked, and committing it. The node tree stays as it was until a reload.
#include "commands/adapter.hpp"
#include "common/errno.hpp"
#include "objects/notify/notify.hpp"
#include "objects/work/gitkeep.hpp"
#include "objects/work/workdir.hpp"
#include "system/os.hpp"
#include "zev/log.h"
#include "zev/shell.h"

#include <cerrno>
#include <string_view>

using namespace zev;

namespace {

// ---- A new directory

Failure fail_directory(const zwchar *directory, Here at = {}) {
    raise_errno(word(u"sys.eCannotCreateDir_s"), directory);
    log_raised(kError, at, kFacilityStd);
    return {};
}

// Where the keep-file of a directory lies. The work directory itself has none.
bool find_keep(WorkPath *out, Repository *repository, const zwchar *directory) {
    if (!directory) return fail_args();
    const std::u16string keep = std::u16string(directory).append(u"/").append(kKeepFileWide);
    if (!work_path(out, repository, keep.c_str())) return false;
    if (out->relative == kKeepFileWide) return logged(raise_args(directory));
    if (out->full.size() < Z_PATH_MAX) return true;
    return fail_os(ENAMETOOLONG, directory);
}

// One level; what is there may be a directory.
bool make_directory(const std::u16string &full) {
    struct stat status;
    if (os::lstat(full.c_str(), &status) && S_ISDIR(status.st_mode)) return true;
    return os::make_dir(full.c_str());
}

// Never through a link. An empty keep-file does as well as a whole one.
bool write_keep(const std::u16string &full) {
    os::Mode mode{.read = true, .write = true, .create = true, .truncate = true, .no_link = true};
    const int fd = os::open_fd(full.c_str(), mode);
    if (fd < 0) return false;
    if (!os::write_all(fd, kKeepText.data(), kKeepText.size())) raise_errno(nullptr);
    os::close_fd(fd);
    return true;
}

// ---- Selections

bool add_path(Repository *repository, const zwchar *path) {
    const PathSpecPtr spec = literal_spec(1, &path, nullptr);
    return spec && zShellAdd(repository, spec.get());
}

// A path that ends in a slash names a directory, which is committed and reverted by its keep-file.
bool add_to(PathSpec *spec, std::u16string_view path) {
    if (path.empty()) return true;
    std::u16string name(path);
    if (name.back() == u'/') {
        name += kKeepFileWide;
        if (name.size() >= Z_PATH_MAX) return logged(raise_args(name));
    }
    return zPathSpecAdd(spec, name.c_str());
}

PathSpecPtr keep_spec(uint64_t count, const zwchar *const *paths, const Notify *notify) {
    if (!paths && count) return fail_args(), nullptr;
    PathSpecPtr spec = literal_spec(0, nullptr, notify);
    for (uint64_t i = 0; spec && i < count; ++i) {
        if (!paths[i]) return fail_args(), nullptr;
        if (!add_to(spec.get(), paths[i])) return nullptr;
    }
    return spec;
}

} // namespace

bool zCommandMkdir(const zwchar *workdir, const zwchar *directory) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    Repository *repository = connection.repository();
    WorkPath keep;
    if (!find_keep(&keep, repository, directory)) return false;
    const std::u16string full(path_above(keep.full));
    if (!make_directory(full) || !write_keep(keep.full)) return fail_directory(directory);
    return add_path(repository, keep.relative.c_str()); // nothing else in the directory
} catch (...) {
    return fail_thrown();
}

// A literal pattern names a directory by the slash at its end.
bool zCommandAdd(const zwchar *workdir, const zwchar *path) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    Repository *repository = connection.repository();
    WorkPath place;
    struct stat status;
    if (!work_path(&place, repository, path)) return false;
    const bool is_dir = os::lstat(place.full.c_str(), &status) && S_ISDIR(status.st_mode);
    std::u16string name(path);
    if (is_dir && !name.empty() && name.back() != u'/') name += u'/';
    return add_path(repository, name.c_str());
} catch (...) {
    return fail_thrown();
}

bool zCommandMove(const zwchar *workdir, const zwchar *from, const zwchar *to) {
    const ConnectionUse connection(workdir);
    return connection && zShellMv(connection.repository(), from, to);
}

bool zCommandRm(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                const Notify *host) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    const Adapter adapter(host);
    const PathSpecPtr spec = literal_spec(count, paths, adapter.get());
    return spec && zShellRm(connection.repository(), spec.get());
} catch (...) {
    return fail_thrown();
}

bool zCommandRevert(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                    const Notify *host) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    const Adapter adapter(host);
    const PathSpecPtr spec = keep_spec(count, paths, adapter.get());
    return spec && zShellRevert(connection.repository(), spec.get());
} catch (...) {
    return fail_thrown();
}

bool zCommandCommit(const zwchar *workdir, const zwchar *author, const zwchar *message,
                    uint64_t count, const zwchar *const *paths, const Notify *host) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    const Adapter adapter(host);
    const PathSpecPtr spec = keep_spec(count, paths, adapter.get());
    return spec && zShellCommit(connection.repository(), spec.get(), author, message);
} catch (...) {
    return fail_thrown();
}
