// Moving within the work directory.
#include "zev/workdir.h"

#include "common/failure.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/work/workdir.hpp"
#include "system/os.hpp"
#include "zev/dir.h"
#include "zev/path.h"

#include <cerrno>

using namespace zev;

namespace {

// Neither by `..` nor through a link may a move take from elsewhere, or put there.
bool is_inside(const zwchar *workdir, const zwchar *path) {
    const std::u16string relative = tidy_path(path);
    return check_path(to_utf8(relative)) && check_links(workdir, relative);
}

// The directories above the target would be made within the source.
bool is_within(std::u16string_view path, std::u16string_view directory) {
    return path.starts_with(directory) && path.substr(directory.size()).starts_with(u'/');
}

bool make_parents(const zwchar *path) {
    zwchar parent[Z_PATH_MAX];
    return zPathRemoveName(parent, path) && zDirMake(parent, true);
}

// Takes away what stands where something is to go: a directory only if no file is below it, even
// with `replace`. A file that a file replaces stays until the move puts the new one in its place.
bool clear_target(const zwchar *target, bool replace, bool by_directory) {
    struct stat status;
    if (!os::lstat(target, &status)) return errno == ENOENT || fail_os(errno);
    if (S_ISDIR(status.st_mode)) return remove_hollow(target) || fail_os(EEXIST);
    if (!replace) return fail_os(EEXIST);
    return !by_directory || os::unlink(target) || fail_os(errno);
}

} // namespace

bool zWorkdirRename(const zwchar *workdir, const zwchar *from, const zwchar *to, bool replace) try {
    if (!workdir || !from || !to) return fail_args();
    if (!is_inside(workdir, from) || !is_inside(workdir, to)) return false;
    zwchar source[Z_PATH_MAX], target[Z_PATH_MAX];
    if (!zPathMakeAbsolute(source, from, workdir) || !zPathMakeAbsolute(target, to, workdir))
        return false;
    struct stat status;
    if (!os::lstat(source, &status)) return fail_os(errno);
    if (zPathIsSame(source, target)) return false;
    if (is_within(tidy_path(to), tidy_path(from))) return fail_os(EINVAL);
    const bool is_dir = S_ISDIR(status.st_mode);
    if (!make_parents(target) || !clear_target(target, replace, is_dir)) return false;
    return os::move(source, target, replace && !is_dir) || fail_os(errno);
} catch (...) {
    return fail_thrown();
}
