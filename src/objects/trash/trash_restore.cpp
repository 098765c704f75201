// Out of the trash, back into the work directory.
//
// The item moves in one step onto a name that nobody has, so that whatever stands there stays
// unless the user says otherwise. It is in the trash or in the work directory at any moment; what
// comes after the move, tidying the slot and staging, may fail without losing it.
#include "objects/trash/trash.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/notify/dialogs.hpp"
#include "objects/notify/left.hpp"
#include "objects/work/index.hpp"
#include "system/os.hpp"
#include "zev/file.h"
#include "zev/oid.h"
#include "zev/repository.h"

#include <cerrno>

using namespace zev;

namespace {

class Restore {
  public:
    Restore(Repository *repository, const TrashEntry *entry, const Notify *notify)
        : repository_(repository), entry_(entry), notify_(notify) {}

    // The steps in their order; `gone` ends them well.
    bool find(bool *gone);
    bool place(const zwchar *directory);
    bool lock();
    bool clear_way();
    bool make_directory();
    bool move();
    bool tidy();
    bool stage();
    bool tell();

  private:
    bool is_obstacle(const std::u16string &path) const;
    bool remove_obstacle(const std::u16string &path);
    bool replace();
    bool rename();
    bool find_free_name();
    bool try_name(const std::u16string &tag);

    bool told(const zwchar *key, const std::u16string &path) const {
        return notify_error(notify_, key, path.c_str());
    }
    std::u16string in_workdir(const std::u16string &path) const {
        return path_below(zRepositoryWorkdir(repository_), path);
    }
    bool move_to_target() const {
        return os::move(item_.c_str(), in_workdir(target_).c_str(), false);
    }

    Repository *repository_;
    const TrashEntry *entry_;
    const Notify *notify_;
    std::u16string root_, item_;
    std::u16string directory_, target_; // relative
    IndexPtr index_;
};

bool Restore::find(bool *gone) {
    if (!trash_root(&root_, repository_) || !check_trash_entry(root_, *entry_)) return false;
    item_ = path_below(root_, entry_->path);
    struct stat status;
    if (os::lstat(item_.c_str(), &status)) return true;
    *gone = errno == ENOENT;
    return *gone || fail_errno(item_.c_str());
}

bool Restore::place(const zwchar *directory) {
    WorkPath target;
    directory_ = tidy_path(directory);
    if (!work_path(&target, repository_, path_below(directory_, entry_->name).c_str()))
        return false;
    target_ = std::move(target.relative);
    return true;
}

bool Restore::lock() {
    index_.reset(zIndexHead(repository_, true));
    return index_ || notify_error(notify_, u"odb.eUnableToLockWorkingCopy");
}

// ---- A place for the directory

// A file in place of the directory, or of one above it.
bool Restore::is_obstacle(const std::u16string &path) const {
    const std::string name = to_utf8(path);
    for (int stage : {0, 2})
        if (git_index_get_bypath(index_->handle.get(), name.c_str(), stage)) return true;
    struct stat status;
    return os::lstat(in_workdir(path).c_str(), &status) && S_ISREG(status.st_mode);
}

bool Restore::clear_way() {
    for (std::u16string_view path = directory_; !path.empty(); path = path_above(path))
        if (is_obstacle(std::u16string(path))) return remove_obstacle(std::u16string(path));
    return true;
}

// The file may be one that only the index knows, with a directory on disk, which then stays.
bool Restore::remove_obstacle(const std::u16string &path) {
    raise_exists(path);
    if (ask_skip_or_delete(notify_, path.c_str(), directory_.c_str()) != kDelete) return false;
    struct stat status;
    const bool is_dir = os::lstat(in_workdir(path).c_str(), &status) && S_ISDIR(status.st_mode);
    if ((is_dir || zTrashMoveInto(repository_, path.c_str())) &&
        index_drop(index_.get(), to_utf8(path).c_str()))
        return true;
    return told(u"sys.eFailedToRemoveFile_s", path);
}

bool Restore::make_directory() {
    const std::u16string full = in_workdir(directory_);
    if (os::make_dirs(full.c_str())) return true;
    fail_errno(full.c_str());
    return told(u"sys.eCannotCreateDir_s", directory_);
}

// ---- A name for the item

bool Restore::move() {
    if (move_to_target()) return true;
    if (errno != EEXIST) {
        fail_errno(target_.c_str());
        return told(u"sys.eFailedToAccess_s", target_);
    }
    raise_exists(target_);
    switch (ask_skip_or_replace(notify_, entry_->name.c_str(), directory_.c_str())) {
    case kReplace:
        return replace() || told(u"sys.eFailedToReplace_s", target_);
    case kReplaceSkip:
        notify_skipped(notify_, target_.c_str());
        return false;
    case kRename:
        return rename() || told(u"sys.eFailedToRename_s", target_);
    default:
        return false;
    }
}

bool Restore::replace() {
    const std::string name = to_utf8(target_);
    if (!zDrop(in_workdir(target_).c_str())) return fail_errno(target_.c_str());
    if (!index_drop(index_.get(), name.c_str()) || !index_drop_below(index_.get(), name))
        return false;
    const bool moved = os::make_dirs(in_workdir(directory_).c_str()) && move_to_target();
    return moved || fail_errno(target_.c_str());
}

bool Restore::rename() {
    return find_free_name() && (move_to_target() || fail_errno(target_.c_str()));
}

// A name with a number that nobody has, then one with a piece of chance.
bool Restore::find_free_name() {
    constexpr int kTries = 99;
    for (int number = 1; number <= kTries; ++number)
        if (try_name(to_wide(std::to_string(number)))) return true;
    for (int tries = 1; tries <= kTries; ++tries) {
        Oid id;
        zwchar digits[9];
        if (zOidRand(&id) && zOidNFormat(digits, 8, &id) && try_name(digits)) return true;
    }
    return false;
}

// "plan.dwx" becomes "plan (1).dwx". New names have at most 63 characters: a longer one loses the
// end of its base, never number or extension.
bool Restore::try_name(const std::u16string &tag) {
    constexpr size_t kMost = 63;
    const std::u16string &name = entry_->name;
    const size_t dot = std::min(name.rfind(u'.'), name.size());
    const std::u16string tail = u" (" + tag + u")" + name.substr(dot);
    if (tail.size() >= kMost) return false;
    const size_t base = whole(name.c_str(), std::min(dot, kMost - tail.size()));
    const std::u16string path = path_below(directory_, name.substr(0, base) + tail);
    struct stat status;
    if (os::lstat(in_workdir(path).c_str(), &status) || errno != ENOENT) return false;
    target_ = path;
    return true;
}

// ---- Afterwards

bool Restore::tidy() { return prune_trash(root_, entry_->path, true), true; }

// Exactly the item: a directory is named with a slash. The user's rights may be others by now.
bool Restore::stage() {
    struct stat status;
    std::u16string pattern = target_;
    if (os::lstat(in_workdir(target_).c_str(), &status) && S_ISDIR(status.st_mode)) pattern += u'/';
    const Owned<PathSpec, zPathSpecFree> spec(zPathSpecNew(pattern.c_str(), Z_SPEC_LITERAL));
    if (!spec || !zIndexAdd(index_.get(), spec.get()) ||
        !zIndexFixupGitkeep(index_.get(), target_.c_str()))
        return notify_raised(notify_);
    zIndexFixupFilemode(index_.get(), spec.get());
    return zIndexWrite(index_.get()) || notify_raised(notify_);
}

bool Restore::tell() {
    notify_action(notify_, u"action.sReverted", target_.c_str());
    return true;
}

} // namespace

bool zTrashMoveTo(Repository *repository, const TrashEntry *entry, const zwchar *directory,
                  const Notify *notify) try {
    if (!repository || !entry || !directory) return fail_args();
    Restore restore(repository, entry, notify);
    bool gone = false;
    if (!restore.find(&gone) || gone) return gone;
    if (!restore.place(directory) || !restore.lock()) return false;
    // Somebody else may have given it back while this call waited for the lock.
    if (!restore.find(&gone) || gone) return gone;
    return restore.clear_way() && restore.make_directory() && restore.move() && restore.tidy() &&
           restore.stage() && restore.tell();
} catch (...) {
    return fail_thrown();
}

bool zTrashMoveBack(Repository *repository, const TrashEntry *entry, const Notify *notify) {
    if (!entry) return fail_args();
    return zTrashMoveTo(repository, entry, entry->orig.c_str(), notify);
}
