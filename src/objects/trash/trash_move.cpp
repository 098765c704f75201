// Into the trash, by path or many at a time, and out of it for good. The layout is told in
// trash_entry.cpp. What the work directory's family drops goes through here too.
//
// Order on the way in: slot, description, sync, item. Killed in between, a slot is left that
// shows nowhere, and the item stands where it was. On the way out the item goes first, and the
// description only with a slot that holds nothing else.
#include "objects/trash/trash.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/dir.h"
#include "zev/oid.h"
#include "zev/time.h"
#include "zev/workdir.h"

#include <cerrno>

namespace zev {

namespace {

constexpr size_t kAhead = 256; // descriptions made for one sync

bool is_there(const std::u16string &path) {
    struct stat status;
    return os::lstat(path.c_str(), &status);
}

// The description in a slot leaves no place for an item of its name.
bool can_take(const WorkPath &place) {
    if (path_name(place.relative) != kTrashInfo) return true;
    raise_args(place.relative);
    return false;
}

bool write_info(const std::u16string &slot, const std::string &text, bool durable) {
    os::Mode mode;
    mode.write = mode.create = mode.exclusive = true;
    const int fd = os::open_fd(path_below(slot, kTrashInfo).c_str(), mode);
    if (fd < 0) return false;
    const Finally close([fd] { os::close_fd(fd); });
    return os::write_all(fd, text.data(), text.size()) && (!durable || os::fd_sync(fd));
}

// Gives a slot back that its item didn't reach. One that holds an item after all stays: across
// devices the copy may be whole although its source could not be removed.
void close_slot(const TrashSlot &slot) {
    if (is_there(path_below(slot.directory, slot.name)) || errno != ENOENT) return;
    os::unlink(path_below(slot.directory, kTrashInfo).c_str());
    os::remove_dir(slot.directory.c_str());
    os::remove_dir(std::u16string(path_above(slot.directory)).c_str());
}

// Draws a slot and describes what will come. A process that tidies up may take the directory away
// before the description is in it; then another one is drawn.
bool open_slot(TrashSlot *out, const std::u16string &root, const WorkPath &place, bool durable) {
    constexpr int kTries = 3;
    Time now;
    zTimeGlobal(&now);
    TrashSlot slot{{}, std::u16string(path_name(place.relative))};
    const std::string text =
        format_trash_info({slot.name, std::u16string(path_above(place.relative)), now.seconds});
    if (text.empty()) return false;
    for (int tries = 1;; ++tries) {
        Oid id; // from chance alone: zOidRand also asks for the machine's addresses, each time
        zwchar digits[kTrashSlot + 1];
        os::calls.random(&id, sizeof id);
        if (!zOidPathFormat(digits, &id)) return false;
        slot.directory = path_below(root, digits);
        if (os::make_dirs(slot.directory.c_str()) && write_info(slot.directory, text, durable))
            break;
        const int kept = errno;
        close_slot(slot);
        errno = kept;
        if (kept != ENOENT || tries == kTries) return fail_system(slot.directory.c_str());
    }
    *out = std::move(slot);
    return true;
}

bool fill_slot(const TrashSlot &slot, const std::u16string &source) {
    if (os::move(source.c_str(), path_below(slot.directory, slot.name).c_str(), false)) return true;
    const int kept = errno;
    close_slot(slot);
    errno = kept;
    return fail_system(source.c_str());
}

// A second name takes no room, also on a full disk. A copy has its name when it is whole.
bool keep_item(const TrashSlot &slot, const std::u16string &source, const std::u16string &item) {
    if (os::link(source.c_str(), item.c_str())) return os::sync_dir(slot.directory.c_str());
    const std::u16string aside = path_below(slot.directory, u"part.$$$");
    const bool done =
        os::copy(source.c_str(), aside.c_str()) && os::sync_tree(slot.directory.c_str()) &&
        os::move(aside.c_str(), item.c_str(), false) && os::sync_dir(slot.directory.c_str());
    const int kept = errno;
    if (!done) os::unlink(aside.c_str());
    errno = kept;
    return done;
}

bool keep_in_slot(const TrashSlot &slot, const std::u16string &source) {
    const std::u16string item = path_below(slot.directory, slot.name);
    if (keep_item(slot, source, item)) return true;
    const int kept = errno;
    os::unlink(item.c_str());
    close_slot(slot);
    errno = kept;
    return fail_system(source.c_str());
}

// A slot that holds its description alone goes, or, if `hollow`, directories without files too.
bool remove_slot(const std::u16string &slot, bool hollow) {
    std::vector<os::Name> names;
    if (!os::read_dir(slot.c_str(), &names)) return errno == ENOENT;
    for (const os::Name &name : names) {
        if (name.text == u"." || name.text == u"..") continue;
        const bool goes = name.directory ? hollow && remove_hollow(path_below(slot, name.text))
                                         : name.text == kTrashInfo;
        if (!goes) return false;
    }
    const std::u16string info = path_below(slot, kTrashInfo);
    return (os::unlink(info.c_str()) || errno == ENOENT) && os::remove_dir(slot.c_str());
}

} // namespace

// A file of the user's may have the description's name; below its slot it is no other.
void prune_trash(const std::u16string &root, std::u16string_view path, bool hollow) {
    for (path = path_above(path); !path.empty(); path = path_above(path)) {
        const std::u16string directory = path_below(root, path);
        const bool gone = path.size() == kTrashSlot ? remove_slot(directory, hollow)
                          : hollow                  ? remove_hollow(directory)
                                                    : os::remove_dir(directory.c_str());
        if (!gone) return;
    }
}

// ---- Many at a time

TrashBatch::~TrashBatch() {
    for (const auto &[path, slot] : ready_) close_slot(slot);
}

bool TrashBatch::announce(const std::u16string &path) {
    std::u16string root;
    WorkPath place;
    TrashSlot slot;
    if (!trash_root(&root, repository_) || !work_path_to_take(&place, repository_, path.c_str()) ||
        ready_.contains(place.relative) || !is_there(place.full) ||
        !open_slot(&slot, root, place, false))
        return false;
    ready_.emplace(std::move(place.relative), std::move(slot));
    return true;
}

// The next of the announced paths. Without a sync none of their slots counts.
void TrashBatch::prepare() {
    std::u16string root;
    const size_t end = std::min(next_ + kAhead, paths_.size());
    bool any = false;
    for (; next_ < end; ++next_) any |= announce(paths_[next_]);
    if (!any || (trash_root(&root, repository_) && os::sync_tree(root.c_str()))) return;
    for (const auto &[path, slot] : ready_) close_slot(slot);
    ready_.clear();
}

bool TrashBatch::take(const WorkPath &place) {
    std::u16string root;
    if (!trash_root(&root, repository_)) return false;
    if (!is_there(place.full)) return errno == ENOENT || fail_system(place.full.c_str());
    if (!can_take(place)) return false;
    auto found = ready_.find(place.relative);
    if (found == ready_.end() && next_ < paths_.size()) {
        prepare();
        found = ready_.find(place.relative);
    }
    TrashSlot slot;
    if (found != ready_.end()) {
        slot = std::move(found->second);
        ready_.erase(found);
    } else if (!open_slot(&slot, root, place, true)) {
        return false;
    }
    return fill_slot(slot, place.full);
}

bool TrashBatch::move_in(const zwchar *path) {
    WorkPath place;
    return work_path_to_take(&place, repository_, path) && take(place);
}

bool TrashBatch::drop(const zwchar *path) {
    WorkPath place;
    if (!work_path_to_take(&place, repository_, path) || !take(place)) return false;
    prune_workdir(repository_, path_above(place.relative));
    return true;
}

} // namespace zev

using namespace zev;

// ---- One at a time

bool zTrashMoveInto(Repository *repository, const zwchar *path) try {
    TrashBatch one(repository);
    return one.move_in(path);
} catch (...) {
    return fail_thrown();
}

bool zTrashKeep(Repository *repository, const zwchar *path) try {
    std::u16string root;
    WorkPath place;
    TrashSlot slot;
    struct stat status;
    if (!work_path_to_take(&place, repository, path) || !trash_root(&root, repository))
        return false;
    if (!os::lstat(place.full.c_str(), &status))
        return errno == ENOENT || fail_system(place.full.c_str());
    if (!S_ISREG(status.st_mode)) return raise_args(place.relative);
    return can_take(place) && open_slot(&slot, root, place, true) && keep_in_slot(slot, place.full);
} catch (...) {
    return fail_thrown();
}

bool zWorkdirDrop(Repository *repository, const zwchar *path) try {
    TrashBatch one(repository);
    return one.drop(path);
} catch (...) {
    return fail_thrown();
}

bool zWorkdirRemoveObstacle(Repository *repository, const zwchar *path, int32_t trash) try {
    WorkPath place;
    if (!work_path_to_take(&place, repository, path)) return false;
    const std::u16string obstacle = find_obstacle(repository, place);
    if (obstacle.empty()) return true;
    return (trash & 0xFF) ? zWorkdirDrop(repository, obstacle.c_str())
                          : zWorkdirRemove(repository, obstacle.c_str());
} catch (...) {
    return fail_thrown();
}

// ---- For good

bool zTrashRemove(Repository *repository, const TrashEntry *entry) try {
    std::u16string root;
    if (!entry) return fail_args();
    if (!trash_root(&root, repository) || !check_trash_entry(root, *entry)) return false;
    const std::u16string item = path_below(root, entry->path);
    if (!is_there(item)) return errno == ENOENT || fail_errno(item.c_str());
    if (!os::remove_tree(item.c_str(), false)) return fail_errno(item.c_str());
    return prune_trash(root, entry->path, false), true;
} catch (...) {
    return fail_thrown();
}

bool zTrashPurge(Repository *repository, int32_t days) {
    if (days < 0) return fail_args();
    Owned<TrashFind, zTrashFindFree> find(zTrashFindNew(repository, nullptr, nullptr, false));
    if (!find || !trash_find_start(find.get())) return false;
    Time now;
    zTimeGlobal(&now);
    const int64_t limit = now.seconds - int64_t{days} * 86400;
    while (zTrashFindNext(find.get())) {
        const TrashEntry *entry = zTrashFindEntry(find.get());
        if (entry->dtime.seconds <= limit) zTrashRemove(repository, entry);
    }
    return true;
}

bool zTrashCleanup(Repository *repository) try {
    std::u16string root;
    return trash_root(&root, repository) && zDirRemove(root.c_str(), true, true);
} catch (...) {
    return fail_thrown();
}
