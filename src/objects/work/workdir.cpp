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

// What stands where something is to go, under a name beside it until the move has succeeded: else
// it comes back.
class Aside {
  public:
    Aside() = default;
    Aside(const Aside &) = delete;
    Aside &operator=(const Aside &) = delete;
    ~Aside() {
        if (!target_.empty()) os::move(name_, target_.c_str(), false);
    }

    bool take(const zwchar *target);
    void drop(); // for good

  private:
    std::u16string target_; // empty: nothing was taken
    zwchar name_[Z_PATH_MAX];
};

// The name is reserved as a file.
bool Aside::take(const zwchar *target) {
    const std::u16string directory(path_above(target));
    const int fd = os::temp_named(name_, directory.c_str(), u".");
    if (fd < 0) return fail_os(errno);
    os::close_fd(fd);
    std::u16string kept(target);
    if (!os::unlink(name_) || !os::move(target, name_, false)) return fail_os(errno);
    target_ = std::move(kept);
    return true;
}

void Aside::drop() {
    if (target_.empty()) return;
    if (!os::unlink(name_)) os::remove_dir(name_, true, false);
    target_.clear();
}

// A directory makes way only if no file is below it, even with `replace`. A file that a file
// replaces stays where it is: the move does both in one step.
bool make_way(Aside &aside, const zwchar *target, bool replace, bool by_directory) {
    struct stat status;
    if (!os::lstat(target, &status)) return errno == ENOENT || fail_os(errno);
    const bool is_dir = S_ISDIR(status.st_mode);
    if (is_dir ? os::holds_file(target) != 0 : !replace) return fail_os(EEXIST);
    return (!is_dir && !by_directory) || aside.take(target);
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
    Aside aside;
    if (!make_parents(target) || !make_way(aside, target, replace, is_dir)) return false;
    if (!os::move(source, target, replace && !is_dir)) return fail_os(errno);
    return aside.drop(), true;
} catch (...) {
    return fail_thrown();
}
