// Questions about the files of a work directory, and ways of taking them out of it.
#include "objects/work/workdir.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/dir.h"
#include "zev/file.h"
#include "zev/repository.h"
#include "zev/workdir.h"

#include <cerrno>

using namespace zev;

namespace zev {

// ---- Paths

std::u16string tidy_path(std::u16string_view path) {
    std::u16string tidy;
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find_first_of(u"/\\", at), path.size());
        const std::u16string_view part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty() || part == u".") continue;
        if (!tidy.empty()) tidy += u'/';
        tidy += part;
    }
    return tidy;
}

std::u16string_view path_above(std::u16string_view path) {
    const size_t slash = path.rfind(u'/');
    return slash == path.npos ? std::u16string_view() : path.substr(0, slash);
}

std::u16string_view path_name(std::u16string_view path) {
    return path.substr(path.rfind(u'/') + 1);
}

std::u16string path_below(std::u16string_view directory, std::u16string_view path) {
    std::u16string joined(directory);
    if (!joined.empty() && !path.empty() && joined.back() != u'/') joined += u'/';
    return joined.append(path);
}

bool check_links(std::u16string_view directory, std::u16string_view relative) {
    for (size_t slash = relative.find(u'/'); slash != relative.npos;
         slash = relative.find(u'/', slash + 1)) {
        struct stat status;
        // Behind what is missing, or no directory, there is nothing to reach.
        if (!os::lstat(path_below(directory, relative.substr(0, slash)).c_str(), &status))
            return true;
        if (S_ISLNK(status.st_mode)) {
            raise_args(std::u16string(relative));
            return false;
        }
        if (!S_ISDIR(status.st_mode)) return true;
    }
    return true;
}

bool work_path(WorkPath *out, Repository *repository, const zwchar *path) {
    if (!repository || !path) return fail_args();
    const zwchar *workdir = zRepositoryWorkdir(repository);
    if (!workdir) return false;
    out->relative = tidy_path(path);
    out->full = path_below(workdir, out->relative);
    if (out->relative.empty()) return true;
    return check_path(to_utf8(out->relative)) && check_links(workdir, out->relative);
}

bool work_path_to_take(WorkPath *out, Repository *repository, const zwchar *path) {
    if (!work_path(out, repository, path)) return false;
    const zwchar *git = zRepositoryPath(repository);
    if (!git) return false;
    if (!out->relative.empty() && !std::u16string_view(git).starts_with(out->full + u'/'))
        return true;
    raise_args(path);
    return false;
}

// ---- Emptied directories

bool remove_hollow(const std::u16string &path) {
    if (os::remove_dir(path.c_str()) || errno == ENOENT) return true;
    if (errno != ENOTEMPTY && errno != EEXIST) return false;
    return os::holds_file(path.c_str()) == 0 && os::remove_dir(path.c_str(), true, false);
}

void prune_workdir(Repository *repository, std::u16string_view directory) {
    const zwchar *workdir = zRepositoryWorkdir(repository);
    while (!directory.empty() && remove_hollow(path_below(workdir, directory)))
        directory = path_above(directory);
}

} // namespace zev

namespace {

bool is_there(const WorkPath &place, struct stat *status) {
    return os::lstat(place.full.c_str(), status);
}

// Missing is an answer, not a failure.
template <class F> bool ask(Repository *repository, const zwchar *path, F test) try {
    WorkPath place;
    struct stat status;
    return work_path(&place, repository, path) && is_there(place, &status) && test(status);
} catch (...) {
    return fail_thrown();
}

// Files only: a link has no mode of its own, and that of its target is not ours to change.
bool set_readonly(const zwchar *path, bool readonly) {
    struct stat status;
    if (!os::lstat(path, &status)) return errno == ENOENT || fail_errno(path);
    return !S_ISREG(status.st_mode) || zChread(path, readonly);
}

int32_t set_entry_readonly(const zwchar *path, const Dirent *entry, void *readonly) {
    if (zDirentIsDir(entry)) return 0;
    return set_readonly(path, *static_cast<bool *>(readonly)) ? 0 : -2;
}

bool remove_place(const WorkPath &place, bool directory) {
    if (directory) return zDirRemove(place.full.c_str(), true, true);
    return os::unlink(place.full.c_str()) || errno == ENOENT || fail_errno(place.full.c_str());
}

} // namespace

namespace zev {

std::u16string find_obstacle(Repository *repository, const WorkPath &place) {
    struct stat status;
    if (is_there(place, &status)) return place.relative;
    const zwchar *workdir = zRepositoryWorkdir(repository);
    for (auto above = path_above(place.relative); !above.empty(); above = path_above(above))
        if (os::lstat(path_below(workdir, above).c_str(), &status) && S_ISREG(status.st_mode))
            return std::u16string(above);
    return {};
}

} // namespace zev

// ---- Questions

bool zWorkdirStat(struct stat *out, Repository *repository, const zwchar *path) try {
    if (!out) return fail_args();
    WorkPath place;
    struct stat status;
    if (!work_path(&place, repository, path)) return false;
    if (!is_there(place, &status)) return fail_errno(path);
    *out = status;
    return true;
} catch (...) {
    return fail_thrown();
}

bool zWorkdirPathExists(Repository *repository, const zwchar *path) {
    return ask(repository, path, [](const struct stat &) { return true; });
}

bool zWorkdirFileExists(Repository *repository, const zwchar *path) {
    return ask(repository, path, [](const struct stat &status) { return S_ISREG(status.st_mode); });
}

bool zWorkdirDirExists(Repository *repository, const zwchar *path) {
    return ask(repository, path, [](const struct stat &status) { return S_ISDIR(status.st_mode); });
}

// ---- Changes

bool zWorkdirChread(Repository *repository, const zwchar *path, bool readonly) try {
    WorkPath place;
    struct stat status;
    if (!work_path_to_take(&place, repository, path)) return false;
    if (!is_there(place, &status)) return errno == ENOENT || fail_errno(path);
    if (!S_ISDIR(status.st_mode)) return set_readonly(place.full.c_str(), readonly);
    return zDirForeach(place.full.c_str(), true, set_entry_readonly, &readonly);
} catch (...) {
    return fail_thrown();
}

bool zWorkdirRmdirR(Repository *repository, const zwchar *path) try {
    WorkPath place;
    if (!work_path(&place, repository, path)) return false;
    return prune_workdir(repository, place.relative), true;
} catch (...) {
    return fail_thrown();
}

bool zWorkdirUnlink(Repository *repository, const zwchar *path) try {
    WorkPath place;
    if (!work_path_to_take(&place, repository, path) || !remove_place(place, false)) return false;
    return prune_workdir(repository, path_above(place.relative)), true;
} catch (...) {
    return fail_thrown();
}

bool zWorkdirRemove(Repository *repository, const zwchar *path) try {
    WorkPath place;
    struct stat status;
    if (!work_path_to_take(&place, repository, path)) return false;
    if (!is_there(place, &status)) return errno == ENOENT || fail_errno(path);
    if (!remove_place(place, S_ISDIR(status.st_mode))) return false;
    return prune_workdir(repository, path_above(place.relative)), true;
} catch (...) {
    return fail_thrown();
}
