// The search through the trash: one thread walks, one reads.
//
// The walk sees nothing of the repository but the path of its trash. It holds the mutex only to
// append a result or to look at the stop flag, and each result stays where it is until the run is
// stopped, so that the reader may keep what it was given. The thread's handle is stored under the
// mutex, which the thread takes before it can end; who started it joins it.
#include "objects/trash/trash.hpp"

#include "system/os.hpp"
#include "zev/pathspec.h"
#include "zev/thread.h"

#include <new>

using namespace zev;

namespace {

constexpr size_t kExpected = 1024; // results

class Walk {
  public:
    explicit Walk(TrashFind *find) : find_(find) {}

    void run() {
        if (find_->parent)
            contents(*find_->parent);
        else
            slots();
    }

  private:
    // Each gives false when the whole walk is to end.
    bool slots();
    bool slots_in(const std::u16string &directory);
    bool contents(const TrashEntry &directory);
    bool visit(TrashEntryPtr entry);

    bool goes_on() {
        const std::lock_guard lock(find_->mutex);
        return !find_->stop;
    }

    // A directory that is gone by now holds nothing.
    std::vector<os::Name> list(const std::u16string &path) const {
        std::vector<os::Name> names;
        os::read_dir(path_below(find_->root, path).c_str(), &names);
        std::erase_if(names,
                      [](const os::Name &name) { return name.text == u"." || name.text == u".."; });
        return names;
    }

    TrashFind *find_;
};

bool Walk::slots() {
    for (const os::Name &name : list(u""))
        if (name.directory && !slots_in(name.text)) return false;
    return true;
}

bool Walk::slots_in(const std::u16string &directory) {
    for (const os::Name &name : list(directory)) {
        if (!name.directory) continue;
        TrashEntryPtr entry =
            trash_discover(find_->owner, find_->root, path_below(directory, name.text));
        if (entry ? !visit(std::move(entry)) : !goes_on()) return false;
    }
    return true;
}

// What can't be looked at ends the walk of its directory only.
bool Walk::contents(const TrashEntry &directory) {
    if (!zTrashEntryIsDir(&directory)) return true;
    for (const os::Name &name : list(directory.path)) {
        TrashEntryPtr entry = trash_child(directory, find_->root, name.text);
        if (!entry) return goes_on();
        if (!visit(std::move(entry))) return false;
    }
    return true;
}

bool Walk::visit(TrashEntryPtr entry) {
    const bool descend = find_->recursive && zTrashEntryIsDir(entry.get());
    if (zTrashEntryIsMatch(entry.get(), find_->spec.get())) {
        TrashEntry *found = descend ? zTrashEntryDup(entry.get()) : entry.release();
        if (!found || !zTrashFindPost(find_, found)) return false;
    }
    return goes_on() && (!descend || contents(*entry));
}

} // namespace

namespace zev {

bool trash_find_start(TrashFind *find) try {
    zTrashFindStop(find);
    const std::lock_guard lock(find->mutex);
    find->results.reserve(kExpected);
    find->first = true;
    find->thread = find->started = zThreadCreate(zTrashFindProc, find);
    return find->thread != -1;
} catch (...) {
    return fail_thrown();
}

} // namespace zev

TrashFind *zTrashFindNew(Repository *repository, const TrashEntry *parent, const zwchar *pattern,
                         bool recursive) try {
    std::u16string root;
    if (!trash_root(&root, repository)) return nullptr;
    if (parent && !check_trash_entry(root, *parent)) return nullptr;
    Owned<TrashFind, zTrashFindFree> find(new TrashFind{});
    find->owner = repository;
    find->root = std::move(root);
    find->recursive = recursive;
    find->spec.reset(zPathSpecNew(pattern, 0));
    if (parent) find->parent.reset(zTrashEntryDup(parent));
    return find->spec && (!parent || find->parent) ? find.release() : nullptr;
} catch (...) {
    return fail_thrown();
}

void zTrashFindFree(TrashFind *find) {
    if (!find) return;
    zTrashFindStop(find);
    delete find;
}

bool zTrashFindFirst(TrashFind *find) {
    if (!find) return fail_args();
    return trash_find_start(find) && zTrashFindNext(find);
}

bool zTrashFindNext(TrashFind *find) {
    if (!find) return fail_args();
    std::unique_lock lock(find->mutex);
    if (!find->first) ++find->position;
    find->first = false;
    find->changed.wait(lock,
                       [&] { return find->position < find->results.size() || find->thread == -1; });
    return find->position < find->results.size();
}

bool zTrashFindDone(TrashFind *find) {
    if (!find) return fail_args();
    const std::lock_guard lock(find->mutex);
    return find->stop || find->position >= find->results.size();
}

TrashEntry *zTrashFindEntry(TrashFind *find) {
    if (!find) return fail_args();
    const std::lock_guard lock(find->mutex);
    if (find->position >= find->results.size()) return nullptr;
    return find->results[find->position].get();
}

bool zTrashFindStop(TrashFind *find) {
    if (!find) return fail_args();
    int64_t started = -1;
    {
        const std::lock_guard lock(find->mutex);
        find->stop = true;
        std::swap(started, find->started);
    }
    if (started != -1) zThreadJoin(started);
    const std::lock_guard lock(find->mutex);
    find->stop = false;
    find->results.clear();
    find->position = 0;
    return true;
}

void zTrashFindProc(void *argument) {
    auto *find = static_cast<TrashFind *>(argument);
    if (!find) return void(fail_args());
    try {
        Walk(find).run();
    } catch (...) {
        fail_thrown();
    }
    const std::lock_guard lock(find->mutex);
    find->thread = -1;
    find->changed.notify_all();
}

bool zTrashFindPost(TrashFind *find, TrashEntry *entry) try {
    TrashEntryPtr taken(entry);
    if (!find || !entry) return fail_args();
    const std::lock_guard lock(find->mutex);
    find->results.push_back(std::move(taken));
    find->changed.notify_all();
    return true;
} catch (...) {
    return fail_thrown();
}
