// Staging what a spec selects: zIndexAdd with a report per file, zIndexRefresh without.
#include "objects/work/index.hpp"

#include "common/error_class.hpp"
#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/bulk.hpp"
#include "objects/work/left.hpp"
#include "objects/work/status.hpp"
#include "objects/work/too_deep.hpp"
#include "system/os.hpp"
#include "zev/drawing.h"
#include "zev/path.h"
#include "zev/str.h"

#include <string_view>

using namespace zev;

namespace {

// A file of its own, not by way of a link.
bool is_drawing(const zwchar *full) {
    const zwchar *extension = zPathFindExt(full);
    struct stat status;
    return extension && zStrcasesameW(extension, u".dwx") && os::lstat(full, &status) &&
           S_ISREG(status.st_mode) && zDrawingDetect(nullptr, full);
}

// None of the three sides is the file's: only the user can say that it is to go.
bool is_conflict(Index *index, const char *path) {
    git_index *handle = index->handle.get();
    return !git_index_get_bypath(handle, path, 0) && !git_index_find(nullptr, handle, path);
}

// One comparison, and what of it enters: by zIndexAdd with reports, by zIndexRefresh without.
class IndexUpdate {
  public:
    IndexUpdate(Index *index, PathSpec *spec, const Notify *notify)
        : index_(index), spec_(spec), notify_(notify), stager_(index, notify) {}

    bool compare(uint32_t flags);
    bool add(); // with reports
    bool refresh();

  private:
    template <class F> bool in_bulk(F work);
    bool add_all();
    void tell_nested();
    bool refresh_all(); // tracked files only
    size_t count() const { return git_diff_num_deltas(diff_.get()); }
    bool add_one(const char *path);
    bool must_enter(const char *path) const;
    bool refresh_one(const char *path);
    void confirm_drawing(const char *path);

    Index *index_;
    PathSpec *spec_;
    const Notify *notify_;
    Stager stager_;
    git::Diff diff_;
};

// What differs between index and work directory, in the order of paths: entering them so never
// moves an entry that was entered before.
bool IndexUpdate::compare(uint32_t flags) {
    git_diff_options how;
    git_diff_options_init(&how, GIT_DIFF_OPTIONS_VERSION);
    how.flags = flags | GIT_DIFF_INCLUDE_TYPECHANGE;
    DiffLimit limit(spec_, how);
    limit.narrow(index_->owner, index_->handle.get(), nullptr);
    const bool done = compare_reachable(index_->owner, notify_, [&](bool) {
        return git_diff_index_to_workdir(out(diff_), index_->owner->handle.get(),
                                         index_->handle.get(), &how);
    });
    return limit.thrown() ? fail_memory() : done;
}

// Whatever was entered must be in the store, even if the operation fails later on.
template <class F> bool IndexUpdate::in_bulk(F work) {
    auto bulk = BulkWriter::begin(index_->owner);
    if (!bulk) return false;
    const bool done = work();
    return bulk->finish() && done;
}

bool IndexUpdate::add() {
    return in_bulk([this] { return add_all(); });
}

// Names of files that lie in another repository, of which the comparison says nothing.
void IndexUpdate::tell_nested() {
    const auto *names = spec_matcher(spec_).names();
    if (!names) return;
    NestedRepositories nested(index_);
    for (const Matcher::Name &name : *names)
        if (nested.hold(name.path)) {
            raise_left(index_, Staging::refused, name.path.c_str());
            notify_skipped(notify_, to_wide(name.path).c_str());
        }
}

bool IndexUpdate::add_all() {
    tell_nested();
    for (size_t i = 0; i < count(); ++i) {
        if (zNotifyIsUsrbrk(notify_)) return raise_canceled();
        if (!add_one(git_diff_get_delta(diff_.get(), i)->new_file.path)) return false;
    }
    return true;
}

// A copied drawing is given a table of its own before it is staged, which makes its file anew. One
// that can't enter stays as it is.
void IndexUpdate::confirm_drawing(const char *path) {
    const std::u16string full = full_path(index_->owner, path);
    if (is_drawing(full.c_str()) && stager_.admit(path) == Staging::staged)
        zDrawingConfirmTableBackwardRef(full.c_str());
}

// A repository within is one difference, whose path ends in a slash.
bool IndexUpdate::add_one(const char *path) {
    std::u16string wide = to_wide(path);
    if (wide.ends_with(u'/')) wide.pop_back();
    confirm_drawing(path);
    Staging done = stager_.stage(path);
    if (done == Staging::directory) {
        // A submodule that is tracked follows its head; other repositories are not ours.
        const auto *known = git_index_get_bypath(index_->handle.get(), path, 0);
        if (known && known->mode == GIT_FILEMODE_COMMIT)
            done = stage_named(index_, stager_, path) ? Staging::staged : Staging::failed;
    }
    if (done == Staging::failed) return false;
    if (done == Staging::staged)
        return notify_action(notify_, u"action.sAdded", wide.c_str()), true;
    raise_left(index_, done, path);
    if (done == Staging::closed && must_enter(path)) return false;
    return notify_skipped(notify_, wide.c_str()), true;
}

// A file that can't be read is left out only where nobody counts on it.
bool IndexUpdate::must_enter(const char *path) const {
    return git_index_get_bypath(index_->handle.get(), path, 0) ||
           spec_matcher(spec_).names_itself(path);
}

bool IndexUpdate::refresh() {
    return in_bulk([this] { return refresh_all(); });
}

bool IndexUpdate::refresh_all() {
    for (size_t i = 0; i < count(); ++i)
        if (!refresh_one(git_diff_get_delta(diff_.get(), i)->new_file.path)) return false;
    return true;
}

bool IndexUpdate::refresh_one(const char *path) {
    const Staging done = stager_.stage(path);
    if (done == Staging::failed || done == Staging::closed) return raise_left(index_, done, path);
    if (done != Staging::missing && done != Staging::directory) return true;
    if (is_conflict(index_, path)) return true; // until it is resolved
    const auto *known = git_index_get_bypath(index_->handle.get(), path, 0);
    const bool link = known && known->mode == GIT_FILEMODE_COMMIT;
    if (done == Staging::directory && link) return stage_named(index_, stager_, path);
    return index_drop(index_, path);
}

// The matcher is made here, before anybody is told of a start.
bool has_patterns(PathSpec *spec) {
    if (zPathSpecCount(spec) == 0) return raise_not_found();
    spec_matcher(spec);
    return true;
}

// The reason of a failure stays; the operation's word goes before it unless a path does.
bool end_failed(const Notify *notify) {
    if (zErrorClass() == error_class::kCanceled) return notify_cancel(notify), false;
    if (!*zErrorMsg()) zSetErrorMsg(u"%s", word(u"action.sAborted"));
    return notify_abort(notify), false;
}

} // namespace

bool zIndexAdd(Index *index, PathSpec *spec) try {
    if (!index || !spec) return fail_args();
    if (!has_patterns(spec)) return false;
    const Notify *notify = spec->notify;
    notify_start(notify, u"action.sAdd");
    try {
        IndexUpdate update(index, spec, notify);
        if (!update.compare(GIT_DIFF_INCLUDE_UNTRACKED | GIT_DIFF_RECURSE_UNTRACKED_DIRS) ||
            !update.add())
            return end_failed(notify);
    } catch (...) {
        return fail_thrown(), end_failed(notify);
    }
    return notify_done(notify), true;
} catch (...) {
    return fail_thrown();
}

bool zIndexRefresh(Index *index, PathSpec *spec) try {
    if (!index || !spec) return fail_args();
    if (!has_patterns(spec)) return false;
    IndexUpdate update(index, spec, nullptr);
    return update.compare(0) && update.refresh();
} catch (...) {
    return fail_thrown();
}
