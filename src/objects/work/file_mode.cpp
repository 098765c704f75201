// A mode that changes moves the file's change time, by which an index knows the file again: the
// entry takes the new one over, or every status would read the file.
#include "objects/work/file_mode.hpp"

#include "common/errno.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/strict.hpp"
#include "objects/work/work_writer.hpp"
#include "system/os.hpp"
#include "zev/auth.h"

#include <cerrno>

namespace zev {

namespace {

bool has_rules(Repository *repository) {
    zwchar path[Z_PATH_MAX];
    struct stat status;
    return zAuthdbPath(path, repository) && os::stat(path, &status);
}

class Modes {
  public:
    explicit Modes(Index *index) : index_(index), writer_(index) {}

    // May put another entry in the place of this one.
    bool fit(const git_index_entry &entry, bool writable);

  private:
    bool keep_up(const git_index_entry &entry, const std::u16string &full);

    Index *index_;
    WorkWriter writer_;
};

// A link has no mode of its own, and what is behind one is none of ours.
bool Modes::fit(const git_index_entry &entry, bool writable) {
    struct stat status;
    const std::u16string full = full_path(index_->owner, entry.path);
    if (!os::lstat(full.c_str(), &status)) return errno == ENOENT || fail_errno(full.c_str());
    const mode_t bits = status.st_mode & 0222;
    const bool fits = writable ? (status.st_mode & 0600) == 0600 : bits == 0;
    if (fits || !S_ISREG(status.st_mode) || writer_.is_behind_link(entry.path)) return true;
    const bool is_known = !git_index_entry_stage(&entry) && entry_has_stat(entry, status);
    if (!os::set_readonly(full.c_str(), !writable)) return fail_errno(full.c_str());
    return !is_known || keep_up(entry, full);
}

bool Modes::keep_up(const git_index_entry &entry, const std::u16string &full) {
    struct stat status;
    const std::string path = entry.path;
    git_index_entry renewed = entry;
    if (!os::lstat(full.c_str(), &status)) return fail_errno(full.c_str());
    renewed.path = path.c_str();
    entry_set_stat(renewed, status);
    const StrictOff partial;
    return index_enter(index_, renewed);
}

} // namespace

AuthdbPtr rules_of(Repository *repository) {
    const KeptFailure kept;
    return AuthdbPtr(has_rules(repository) ? zAuthdbOpen(repository) : nullptr);
}

void fit_modes(Index *index, PathSpec *spec, Authdb *rules) {
    if (!has_rules(index->owner)) return;
    Modes modes(index);
    git_index *handle = index->handle.get();
    for (size_t i = 0, count = git_index_entrycount(handle); i < count; ++i) {
        const git_index_entry *entry = git_index_get_byindex(handle, i);
        if (git_index_entry_stage(entry) % 2 || !spec_matches(spec, entry->path)) continue;
        const std::u16string path = to_wide(entry->path);
        modes.fit(*entry, zAuthdbEntryWritable(rules, path.c_str()));
    }
}

} // namespace zev

using namespace zev;

bool zIndexFixupFilemode(Index *index, PathSpec *spec) try {
    if (!index) return fail_args();
    const AuthdbPtr rules(zAuthdbOpen(index->owner));
    if (rules) fit_modes(index, spec, rules.get());
    return true;
} catch (...) {
    return fail_thrown();
}
