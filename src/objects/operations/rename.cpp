// Moving what is tracked. All that can be refused is refused before the disk is touched; after
// that the old entries go first, since the new paths may lie where old ones did.
#include "objects/work/index.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/work/status.hpp"
#include "system/os.hpp"
#include "zev/repository.h"
#include "zev/workdir.h"

using namespace zev;

namespace {

// A tracked file that moves, with its entry as it was.
struct Moved {
    std::string from;
    git_index_entry entry; // its path is not used
    bool rests;            // the file held what the entry names
};

class Rename {
  public:
    Rename(Index *index, const zwchar *from, const zwchar *to)
        : index_(index), from_(to_utf8(from)), to_(to_utf8(to)), stager_(index) {}

    bool check() { return trim(from_) && trim(to_); }
    bool find();
    bool can_move();
    bool drop_old();
    bool enter_new();
    bool fit_modes();

  private:
    static bool trim(std::string &path) {
        while (!path.empty() && path.back() == '/') path.pop_back();
        return check_path(path);
    }
    std::string target(const Moved &moved) const { return to_ + moved.from.substr(from_.size()); }
    bool enter(const Moved &moved);

    Index *index_;
    std::string from_, to_;
    bool is_dir_ = false;
    std::string conflict_;  // a path in conflict that would have to move
    std::string submodule_; // one that would
    Stager stager_;
    std::vector<Moved> moved_;
};

// What is tracked at `from` or below; what is not only moves on disk.
bool Rename::find() {
    struct stat status;
    std::u16string pattern = to_wide(from_);
    is_dir_ =
        os::lstat(full_path(index_->owner, from_).c_str(), &status) && S_ISDIR(status.st_mode);
    const auto *known = git_index_get_bypath(index_->handle.get(), from_.c_str(), 0);
    if (known && known->mode == GIT_FILEMODE_COMMIT) submodule_ = from_;
    if (is_dir_) pattern += u'/';
    PathSpecPtr spec(
        zPathSpecNew(pattern.c_str(), Z_SPEC_LITERAL | Z_SPEC_NO_UNTRACKED | Z_SPEC_NO_IGNORED));
    if (!spec) return false;
    StatusScan scan(index_, spec.get());
    if (!scan.run()) return false;
    constexpr uint32_t kWorkdir = GIT_STATUS_WT_NEW | GIT_STATUS_WT_MODIFIED |
                                  GIT_STATUS_WT_DELETED | GIT_STATUS_WT_TYPECHANGE |
                                  GIT_STATUS_WT_UNREADABLE;
    scan.each([&](const StatusItem &item) {
        const auto *entry = git_index_get_bypath(index_->handle.get(), item.path, 0);
        if (item.kind == Z_KIND_CONFLICTED) conflict_ = item.path;
        if (entry && entry->mode == GIT_FILEMODE_COMMIT) submodule_ = item.path;
        if (entry && item.kind != Z_KIND_MISSING)
            moved_.push_back({item.path, *entry, (item.word & kWorkdir) == 0});
        return 0;
    });
    return true;
}

// Before anything moves. To move a conflict would be to resolve it: nobody has looked at the other
// side yet. A submodule's place is written down in its own settings and in ours.
bool Rename::can_move() {
    if (!conflict_.empty())
        return raise_args(to_wide(conflict_) + u" (" + zStatusName(Z_KIND_CONFLICTED) + u")");
    if (!submodule_.empty()) return raise_args(submodule_);
    NestedRepositories nested(index_);
    for (const Moved &moved : moved_) {
        const std::string path = target(moved);
        if (!check_path(path)) return false;
        if (nested.hold(path)) return raise_args(path);
        if (index_has_twin(index_, path)) return raise_exists(path);
    }
    return true;
}

// From the end: what lies behind an entry moves when it goes.
bool Rename::drop_old() {
    for (auto moved = moved_.rbegin(); moved != moved_.rend(); ++moved)
        if (!index_drop(index_, moved->from.c_str())) return false;
    return true;
}

// In the order of paths, so that each lies behind the one before.
bool Rename::enter_new() {
    for (const Moved &moved : moved_)
        if (!enter(moved)) return false;
    return true;
}

// A file that nobody touched since it was compared need not be read again. Another one enters as it
// was first: what is tracked may stay so wherever it lies. What is not checked out has no file.
bool Rename::enter(const Moved &moved) {
    const std::string path = target(moved);
    struct stat status;
    git_index_entry entry = moved.entry;
    entry.path = path.c_str();
    if (entry.flags_extended & GIT_INDEX_ENTRY_SKIP_WORKTREE) return index_enter(index_, entry);
    bool rests = moved.rests && os::lstat(full_path(index_->owner, path).c_str(), &status);
    if (rests) {
        entry_set_stat(entry, status);
        rests = entry.mtime.seconds == moved.entry.mtime.seconds &&
                entry.mtime.nanoseconds == moved.entry.mtime.nanoseconds &&
                entry.file_size == moved.entry.file_size;
    }
    return index_enter(index_, entry) && (rests || stage_named(index_, stager_, path.c_str()));
}

// The user's rights may be others where it lies now. What can't be changed is no failure: it moved.
bool Rename::fit_modes() {
    const KeptFailure kept;
    const std::u16string pattern = to_wide(to_) + (is_dir_ ? u"/" : u"");
    const PathSpecPtr spec(zPathSpecNew(pattern.c_str(), Z_SPEC_LITERAL));
    if (spec) zIndexFixupFilemode(index_, spec.get());
    return true;
}

} // namespace

bool zIndexRename(Index *index, const zwchar *from, const zwchar *to) try {
    if (!index || !from || !to) return fail_args();
    Rename rename(index, from, to);
    const zwchar *workdir = zRepositoryWorkdir(index->owner);
    return workdir && rename.check() && rename.find() && rename.can_move() &&
           zWorkdirRename(workdir, from, to, false) && rename.drop_old() && rename.enter_new() &&
           rename.fit_modes();
} catch (...) {
    return fail_thrown();
}
