// Dir: names are read whole and sorted at opening, so that a walk doesn't see what it changes
// itself. Making and removing is the system's, see posix/tree.cpp.
#include "zev/dir.h"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/fold.hpp"
#include "common/guard.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "system/path.hpp"
#include "zev/path.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>

using namespace zev;

struct Dirent {
    uint8_t type; // 1 directory, 2 anything else
    zwchar name[kShortPath];
};

struct Dir {
    Dirent current;
    std::vector<os::Name> names; // as they stood when it was opened
    size_t reads;
};

namespace {

bool is_dot(const os::Name &name) { return name.text == u"." || name.text == u".."; }

// Dots first, then without case, by units where only the case differs.
bool in_order(const os::Name &a, const os::Name &b) {
    if (is_dot(a) != is_dot(b)) return is_dot(a);
    const auto less = [](zwchar left, zwchar right) { return fold(left) < fold(right); };
    const auto &left = a.text, &right = b.text;
    if (std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(), less))
        return true;
    return same_folded(left.c_str(), right.c_str()) && left < right;
}

constexpr int32_t kFailed = -2, kSkip = 1;

struct Walk {
    bool recursive;
    DirCallback callback;
    void *context;

    int32_t entry(const zwchar *path, const Dirent *entry) const;
    int32_t directory(const zwchar *path) const;
};

int32_t Walk::entry(const zwchar *directory_path, const Dirent *entry) const {
    zwchar path[Z_PATH_MAX];
    // The one would take the names of a path that leads up for those of one that doesn't.
    const bool leads_up = std::u16string_view(directory_path).starts_with(u"..");
    const bool made = leads_up ? path_join(path, directory_path, entry->name)
                               : zPathMakeAbsolute(path, entry->name, directory_path);
    if (!made) return kFailed;
    const int32_t result = callback(path, entry, context);
    if (result < 0 || result == kSkip || !recursive || !zDirentIsDir(entry)) return result;
    return directory(path);
}

int32_t Walk::directory(const zwchar *path) const {
    Owned<Dir, zDirClose> dir(zDirOpen(path));
    if (!dir) return kFailed;
    int32_t last = 0;
    while (const Dirent *next = last < 0 ? nullptr : zDirRead(dir.get()))
        if (!zDirentIsDotOrDotDot(next)) last = entry(path, next);
    return std::min(last, 0);
}

} // namespace

Dir *zDirOpen(const zwchar *path) try {
    if (!path) {
        errno = EBADF;
        fail_errno();
        return fail_raised();
    }
    auto dir = std::make_unique<Dir>();
    if (!os::read_dir(path, &dir->names)) return fail_system(path);
    std::sort(dir->names.begin(), dir->names.end(), in_order);
    return dir.release();
} catch (...) {
    return fail_thrown();
}

const Dirent *zDirRead(Dir *dir) {
    if (!dir) return fail_args();
    if (dir->reads == dir->names.size()) return nullptr;
    const os::Name &next = dir->names[dir->reads++];
    dir->current.type = next.directory ? 1 : 2;
    dir->current.name[next.text.copy(dir->current.name, std::size(dir->current.name) - 1)] = 0;
    return &dir->current;
}

void zDirClose(Dir *dir) { delete dir; }

bool zDirentIsDir(const Dirent *entry) { return entry && entry->type == 1; }
bool zDirentIsFile(const Dirent *entry) { return entry && entry->type == 2; }
bool zDirentIsDot(const Dirent *entry) { return entry && zStrsameW(entry->name, u"."); }
bool zDirentIsDotDot(const Dirent *entry) { return entry && zStrsameW(entry->name, u".."); }
bool zDirentIsDotOrDotDot(const Dirent *entry) {
    return zDirentIsDot(entry) || zDirentIsDotDot(entry);
}
const zwchar *zDirentName(const Dirent *entry) { return entry ? entry->name : nullptr; }

bool zDirForeach(const zwchar *path, bool recursive, DirCallback callback, void *context) {
    if (!callback) return fail_args();
    return Walk{recursive, callback, context}.directory(path) != kFailed;
}

bool zDirMake(const zwchar *path, bool recursive) {
    if (!path) return fail_args();
    return (recursive ? os::make_dirs(path) : os::make_dir(path)) || fail_errno(path);
}

bool zDirRemove(const zwchar *path, bool recursive, bool force) {
    if (!path) return fail_args();
    const bool empty_only = !recursive && !force;
    const bool gone = empty_only ? os::remove_dir(path) : os::remove_dir(path, recursive, force);
    return gone || errno == ENOENT || fail_errno(path);
}

bool zDirClear(const zwchar *path) {
    if (!path) return fail_args();
    return os::remove_tree(path, true) || errno == ENOENT || fail_errno(path);
}

bool zDirIsEmpty(const zwchar *path) { return os::dir_empty(path) != 0; }

bool zDirSign(const zwchar *name, char *out) {
    static std::atomic<uint32_t> counter;
    if (!name || !out) return false;         // raises nothing, in keeping with the runtime's own
    const bool ascii = *name && *name < 128; // a longer character would overrun `out`
    return snprintf(out, 34, "%c%08X%16X%8X", ascii ? static_cast<char>(*name) : '_',
                    static_cast<uint32_t>(zStrlenW(name)),
                    static_cast<uint32_t>(os::calls.now() / kSecond), ++counter) > 0;
}
