// Keep-files: the store knows no directories, so each tracked one carries an empty `.gitkeep`.
// Directories that are ignored, and those of other repositories, are not tracked and get none.
#include "objects/work/gitkeep.hpp"
#include "objects/work/index.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cerrno>

using namespace zev;

namespace {

std::string keep_file_of(const std::string &directory) {
    return (directory + "/").append(kKeepFile);
}

// Directories are relative, without a slash at their end.
class KeepFiles {
  public:
    explicit KeepFiles(Index *index) : index_(index), stager_(index), nested_(index) {}

    bool ensure(const std::string &directory);
    bool ensure_below(const std::string &directory); // and in itself
    bool is_ours(const std::string &directory);

  private:
    bool is_ignored(const std::string &directory) const;
    static bool make(const std::u16string &full);

    Index *index_;
    Stager stager_;
    NestedRepositories nested_;
};

bool KeepFiles::is_ours(const std::string &directory) {
    const std::string keep = keep_file_of(directory);
    if (!path_can_enter(directory) || is_too_long(index_, keep)) return false;
    if (git_index_get_bypath(index_->handle.get(), keep.c_str(), 0)) return true;
    return !nested_.hold(keep) && !is_ignored(directory);
}

// The directory is asked for too: a rule for all keep-files doesn't bring it back.
bool KeepFiles::is_ignored(const std::string &directory) const {
    for (const std::string &path : {directory + "/", keep_file_of(directory)}) {
        int ignored = 0;
        git_repository *repository = index_->owner->handle.get();
        if (!git_ignore_path_is_ignored(&ignored, repository, path.c_str()) && ignored) return true;
    }
    return false;
}

// Failing to make one raises, and what stands there is added all the same; where nothing does, that
// is the reason which is told. One that differs from
// a tracked one in case only is that one where case doesn't count.
bool KeepFiles::ensure(const std::string &directory) {
    const std::string path = keep_file_of(directory);
    const bool known = git_index_get_bypath(index_->handle.get(), path.c_str(), 0);
    if (!known && index_has_twin(index_, path)) return true;
    const std::u16string full = full_path(index_->owner, path);
    struct stat status;
    const bool stands = (os::lstat(full.c_str(), &status) && S_ISREG(status.st_mode)) || make(full);
    const Staging done = stager_.stage(path.c_str());
    if (!stands && done == Staging::missing) return false;
    return finish_named(index_, done, path.c_str());
}

bool KeepFiles::ensure_below(const std::string &directory) {
    std::vector<os::Name> names;
    const std::u16string full = full_path(index_->owner, directory);
    if (!os::read_dir(full.c_str(), &names)) return fail_errno(full.c_str());
    std::ranges::sort(names, {}, &os::Name::text);
    for (const os::Name &name : names) {
        const std::string below = directory + "/" + to_utf8(name.text);
        if (name.directory && is_ours(below) && !ensure_below(below)) return false;
    }
    return ensure(directory);
}

// Only where there is nothing: through a link it would empty another file.
bool KeepFiles::make(const std::u16string &full) {
    const Owned<FILE, fclose> file(os::open(full.c_str(), u"w+x"));
    return file || fail_errno(full.c_str());
}

} // namespace

bool zIndexFixupGitkeep(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    std::string name = to_utf8(path);
    while (!name.empty() && name.back() == '/') name.pop_back();
    if (!check_path(name) || !check_above(index, to_wide(name).c_str())) return false;
    KeepFiles keep_files(index);
    struct stat status;
    const bool is_dir =
        os::lstat(full_path(index->owner, name).c_str(), &status) && S_ISDIR(status.st_mode);
    if (is_dir && keep_files.is_ours(name) && !keep_files.ensure_below(name)) return false;
    for (size_t slash = name.rfind('/'); slash != name.npos; slash = name.rfind('/')) {
        name.resize(slash);
        if (keep_files.is_ours(name) && !keep_files.ensure(name)) return false;
    }
    return true;
} catch (...) {
    return fail_thrown();
}
