// Cleanup: what a crash left is put right, untracked files go, the trash is emptied, in this order
// and each only if it is wanted. A repository that lies within the work directory is not ours: it
// stays with all that it holds.
#include "zev/cleanup.h"

#include "common/utf.hpp"
#include "objects/notify/left.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/trash/trash.hpp"
#include "objects/work/index.hpp"
#include "objects/work/recovery.hpp"
#include "system/os.hpp"
#include "zev/repository.h"
#include "zev/status.h"
#include "zev/workdir.h"

#include <new>
#include <unordered_map>

using namespace zev;

struct CleanupSpec {
    PathSpec *paths; // owned
    uint32_t options;
};

namespace {

using StatusPtr = Owned<StatusList, zStatusListFree>;

constexpr uint32_t kUntrackedOnly = 0xFFFF0000u & ~uint32_t{Z_SPEC_NO_UNTRACKED};

class Cleanup {
  public:
    Cleanup(Repository *repository, PathSpec *paths, uint32_t options)
        : repository_(repository), paths_(paths), options_(options),
          notify_(zPathSpecNotify(paths)) {}

    bool run();

  private:
    bool is(uint32_t option) const { return options_ & option; }
    bool recover();
    bool remove_untracked();
    bool remove(const StatusList *list);
    void remove(TrashBatch &batch, const zwchar *path);
    bool is_in_repository(std::u16string_view path);
    bool take(TrashBatch &batch, const zwchar *path);
    bool empty_trash();

    Repository *repository_;
    PathSpec *paths_;
    uint32_t options_;
    const Notify *notify_;
    IndexPtr index_;
    std::unordered_map<std::u16string, bool> repositories_; // directories, with their slash
};

bool Cleanup::run() {
    if (!is(Z_CLEANUP_NO_RECOVERY) && !recover()) return false;
    if (zRepositoryIsBare(repository_)) return true;
    index_.reset(zIndexHead(repository_, true));
    if (!index_) return notify_error(notify_, u"odb.eUnableToLockWorkingCopy");
    if (!is(Z_CLEANUP_KEEP_UNTRACKED) && !remove_untracked()) return false;
    return is(Z_CLEANUP_USE_TRASH) || empty_trash();
}

bool Cleanup::recover() {
    return put_back_left(repository_) || notify_error(notify_, u"odb.eUnableToLockWorkingCopy");
}

bool Cleanup::remove_untracked() {
    const StatusPtr list(zStatusListBuild(index_.get(), paths_));
    if (!list) return notify_error(notify_, u"odb.eFailedToCheckStatus");
    return remove(list.get());
}

bool Cleanup::remove(const StatusList *list) {
    std::vector<std::u16string> paths;
    for (uint64_t i = 0; i < zStatusListLength(list); ++i) {
        const StatusEntry *entry = zStatusListEntry(list, i);
        if (zStatusEntryStatus(entry) != Z_KIND_UNTRACKED) continue;
        const zwchar *path = zStatusEntryPath(entry);
        if (is_in_repository(path)) {
            raise_other(word(u"reason.eOtherRepository"), path);
            notify_skipped(notify_, path);
        } else {
            paths.emplace_back(path);
        }
    }
    TrashBatch batch(repository_, is(Z_CLEANUP_USE_TRASH) ? paths : std::vector<std::u16string>{});
    for (const std::u16string &path : paths) {
        if (zNotifyIsUsrbrk(notify_)) return raise_canceled();
        remove(batch, path.c_str());
    }
    return true;
}

void Cleanup::remove(TrashBatch &batch, const zwchar *path) {
    if (take(batch, path)) return notify_action(notify_, u"action.sDeleted", path);
    notify_error(notify_, u"sys.eFailedToRemoveFile_s", path);
    notify_left(notify_, u"action.sFailed", path);
}

// A status lists a whole one by its directory, with a slash; of one that is damaged, the files.
bool Cleanup::is_in_repository(std::u16string_view path) {
    for (size_t slash = path.find(u'/'); slash != path.npos; slash = path.find(u'/', slash + 1)) {
        const auto [known, is_new] = repositories_.try_emplace(std::u16string(path, 0, slash + 1));
        if (is_new) {
            struct stat status;
            const std::string git = to_utf8(known->first) + ".git";
            known->second = os::lstat(full_path(repository_, git).c_str(), &status);
        }
        if (known->second) return true;
    }
    return false;
}

bool Cleanup::take(TrashBatch &batch, const zwchar *path) {
    return is(Z_CLEANUP_USE_TRASH) ? batch.drop(path) : zWorkdirUnlink(repository_, path);
}

bool Cleanup::empty_trash() {
    struct stat status;
    const zwchar *root = zRepositoryTrash(repository_);
    if (!root) return false;
    return !os::lstat(root, &status) || zTrashCleanup(repository_);
}

bool set_option(CleanupSpec *spec, uint32_t options, Here at = {}) {
    if (!spec) return fail_args(at);
    spec->options = options;
    return true;
}

} // namespace

// ---- Spec

CleanupSpec *zCleanupSpecNew() {
    auto *spec = new (std::nothrow) CleanupSpec{};
    if (!spec) return fail_memory();
    if (zCleanupSpecInit(spec)) return spec;
    delete spec;
    return nullptr;
}

bool zCleanupSpecInit(CleanupSpec *spec) {
    if (!spec) return fail_args();
    *spec = {zPathSpecNew(nullptr, kUntrackedOnly), Z_CLEANUP_USE_TRASH};
    return spec->paths != nullptr;
}

bool zCleanupSpecDeinit(CleanupSpec *spec) {
    if (!spec) return fail_args();
    zPathSpecFree(spec->paths);
    *spec = {};
    return true;
}

void zCleanupSpecFree(CleanupSpec *spec) {
    if (!spec) return;
    zPathSpecFree(spec->paths);
    delete spec;
}

PathSpec *zCleanupSpecPaths(CleanupSpec *spec) { return spec ? spec->paths : fail_args(); }
uint32_t zCleanupSpecOptions(const CleanupSpec *spec) {
    if (!spec) return fail_args(), 0;
    return spec->options;
}
bool zCleanupSpecSetOptions(CleanupSpec *spec, uint32_t options) {
    return set_option(spec, options);
}
bool zCleanupSpecIsOn(const CleanupSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return (spec->options & bits) == bits;
}
bool zCleanupSpecIsOff(const CleanupSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return (spec->options & bits) == 0;
}
bool zCleanupSpecSetOn(CleanupSpec *spec, uint32_t bits) {
    return set_option(spec, spec ? spec->options | bits : 0);
}
bool zCleanupSpecSetOff(CleanupSpec *spec, uint32_t bits) {
    return set_option(spec, spec ? spec->options & ~bits : 0);
}

bool zCleanupSpecAdd(CleanupSpec *spec, const zwchar *path) {
    return spec ? zPathSpecAdd(spec->paths, path) : fail_args();
}
uint64_t zCleanupSpecCount(const CleanupSpec *spec) {
    if (!spec) return fail_args(), 0;
    return zPathSpecCount(spec->paths);
}
const zwchar *zCleanupSpecEntry(const CleanupSpec *spec, uint64_t index) {
    return spec ? zPathSpecEntry(spec->paths, index) : fail_args();
}
const Notify *zCleanupSpecNotify(const CleanupSpec *spec) {
    return spec ? zPathSpecNotify(spec->paths) : fail_args();
}
bool zCleanupSpecSetNotify(CleanupSpec *spec, const Notify *notify) {
    return spec ? zPathSpecSetNotify(spec->paths, notify) : fail_args();
}

// ---- Cleanup

bool zRepositoryCleanup(Repository *repository, CleanupSpec *spec) try {
    if (!repository) return fail_args();
    const PathSpecPtr all(spec ? nullptr : zPathSpecNew(nullptr, kUntrackedOnly));
    PathSpec *paths = spec ? spec->paths : all.get();
    if (!paths) return spec ? fail_args() : Failure{};
    const Notify *notify = zPathSpecNotify(paths);
    notify_start(notify, u"action.sCleanup");
    bool done = false;
    try {
        done = Cleanup(repository, paths, spec ? spec->options : 0).run();
    } catch (...) {
        fail_thrown();
    }
    done ? notify_done(notify) : notify_abort(notify);
    return done;
} catch (...) {
    return fail_thrown();
}
