// Keep-files: the store knows no directories, so each tracked one carries an empty `.gitkeep`.
#include "objects/work/index.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cerrno>

using namespace zev;

namespace {

class Keeping {
  public:
    explicit Keeping(Index *index) : index_(index), stager_(index) {}

    // A keep-file in a directory (relative, without a slash at its end); failing to make one
    // raises, and what stands there is added all the same.
    bool ensure(const std::string &directory) {
        const std::string path = directory + "/.gitkeep";
        const std::u16string full = full_path(index_->owner, path);
        struct stat status;
        if (!os::lstat(full.c_str(), &status) || !S_ISREG(status.st_mode)) make(full);
        return stage_named(index_, stager_, path.c_str());
    }

    bool ensure_below(const std::string &directory) {
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

  private:
    // A repository in the working copy keeps its own directories.
    bool is_ours(const std::string &directory) const {
        struct stat status;
        return path_can_enter(directory) &&
               !os::lstat(full_path(index_->owner, directory + "/.git").c_str(), &status);
    }

    // Only where there is nothing: through a link it would empty another file.
    static void make(const std::u16string &full) {
        Owned<FILE, fclose> file(os::open(full.c_str(), u"w+x"));
        if (!file) fail_errno(full.c_str());
    }

    Index *index_;
    Stager stager_;
};

} // namespace

bool zIndexFixupGitkeep(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    std::string name = to_utf8(path);
    while (!name.empty() && name.back() == '/') name.pop_back();
    if (!check_path(name) || !check_above(index, to_wide(name).c_str())) return false;
    Keeping keeping(index);
    struct stat status;
    const bool is_dir =
        os::lstat(full_path(index->owner, name).c_str(), &status) && S_ISDIR(status.st_mode);
    if (is_dir && !keeping.ensure_below(name)) return false;
    for (size_t slash = name.rfind('/'); slash != name.npos; slash = name.rfind('/')) {
        name.resize(slash);
        if (!keeping.ensure(name)) return false;
    }
    return true;
} catch (...) {
    return fail_thrown();
}
