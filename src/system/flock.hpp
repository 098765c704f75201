// Lock files by name and mark, and locks whose saved copy is made late: who only reads under the
// lock pays for no copy, no sync.
#pragma once

#include "zev/flock.h"

#include <string>
#include <string_view>

#include <sys/stat.h>

namespace zev {

constexpr std::u16string_view kLockTail = u".zlck";

inline std::u16string lock_name(std::u16string_view name) { // of the file that guards `name`
    return u"." + std::u16string(name) + std::u16string(kLockTail);
}
inline std::u16string lock_path(std::u16string_view path) { // the same with the way to it
    const size_t name = path.rfind(u'/') + 1;
    return std::u16string(path.substr(0, name)) + lock_name(path.substr(name));
}
// The reverse of lock_name; empty for what is no lock file.
inline std::u16string_view locked_name(std::u16string_view file) {
    if (!file.starts_with(u'.') || !file.ends_with(kLockTail)) return {};
    return file.substr(1, file.size() - 1 - kLockTail.size());
}
// Its holder died before the copy was whole, or saved nothing: not to be put back.
inline bool is_incomplete(const struct stat &lock_file) { return lock_file.st_mode & S_IXUSR; }

// Takes the lock as zFlockOpen. Nothing is saved yet, and nothing of the target may change
// before flock_complete gave true; until then undo has nothing to do and gives true.
Flock *flock_open_lazy(const zwchar *path);
// Saves unless that is done; `absent` is saved where there is no target.
bool flock_complete(Flock *flock, std::string_view absent = {});

// From now on only we can undo: what a crash leaves of the saved copy is too old to be put back.
bool flock_expire(Flock *flock);

// Lets the lock go and leaves the saved copy, whole, to recovery. Takes the record; null is
// ignored.
void flock_leave(Flock *flock);

} // namespace zev
