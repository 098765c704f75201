// What a checkout does at one path. Incoming changes land where the user changed nothing; where he
// did, the index keeps base, ours and theirs. With force his work goes to the trash.
#include "objects/checkout.hpp"

#include "common/utf.hpp"
#include "objects/conflict.hpp"
#include "objects/notify.hpp"
#include "system/os.hpp"
#include "zev/repository.h"
#include "zev/share.h"
#include "zev/status.h"
#include "zev/workdir.h"

#include <cerrno>

namespace zev {

namespace {

constexpr const zwchar *kSkipped = u"action.sSkipped";

bool same(const git_index_entry &a, const git_index_entry &b) {
    return git_oid_equal(&a.id, &b.id) && a.mode == b.mode;
}

} // namespace

// ---- What there is

// Stage 0, of a conflict ours. Lent until the index changes.
const git_index_entry *Checkout::entry_of(const CheckoutStep &step) const {
    const auto *entry = git_index_get_bypath(index_->handle.get(), step.path.c_str(), 0);
    return entry ? entry : git_index_get_bypath(index_->handle.get(), step.path.c_str(), 2);
}

// How the index differs from the base at this path.
int32_t Checkout::local_status(const CheckoutStep &step) const {
    const auto *entry = git_index_get_bypath(index_->handle.get(), step.path.c_str(), 0);
    if (!entry && zIndexPathIsConflict(index_.get(), step.wide.c_str())) return Z_KIND_CONFLICTED;
    if (!entry) return step.base.mode ? Z_KIND_DELETED : Z_KIND_UNCHANGED;
    if (!step.base.mode) return Z_KIND_ADDED;
    return same(*entry, step.base) ? Z_KIND_UNCHANGED : Z_KIND_MODIFIED;
}

// A link that is tracked as one counts as a file.
FileState Checkout::state_of(const CheckoutStep &step) const {
    struct stat status;
    if (!os::lstat(full_path(repository_, step.path).c_str(), &status)) {
        if (errno == ENOENT) return FileState::missing;
        return errno == EACCES ? FileState::denied : FileState::failed;
    }
    if (S_ISDIR(status.st_mode)) return FileState::directory;
    const git_index_entry *entry = entry_of(step);
    const bool own_link = S_ISLNK(status.st_mode) && entry && S_ISLNK(entry->mode);
    return S_ISREG(status.st_mode) || own_link ? FileState::file : FileState::other;
}

// The file is still the one that was compared: nobody saved it meanwhile.
bool Checkout::is_unchanged(const CheckoutStep &step) const {
    struct stat status;
    const git_index_entry *entry = entry_of(step);
    return entry && os::lstat(full_path(repository_, step.path).c_str(), &status) &&
           entry_has_stat(*entry, status);
}

// Another program has the file open, or it can't be written.
bool Checkout::is_in_use(const CheckoutStep &step) const {
    const std::u16string full = full_path(repository_, step.path);
    struct stat status;
    if (os::lstat(full.c_str(), &status) && S_ISLNK(status.st_mode)) return false;
    const Owned<Share, zShareClose> share(zShareOpen(full.c_str(), u"r+b", Z_SHARE_NONE));
    return !share;
}

// ---- Parts of the steps

// A directory without files goes; a file is made writable.
void Checkout::make_way(const CheckoutStep &step, FileState state) {
    if (state == FileState::directory) {
        zWorkdirRmdirR(repository_, step.wide.c_str());
        writer_->forget_directories();
    } else if (state == FileState::file) {
        zWorkdirChread(repository_, step.wide.c_str(), false);
    }
}

// The index has the file as it is.
bool Checkout::ensure_entered(const CheckoutStep &step) {
    const auto *entry = git_index_get_bypath(index_->handle.get(), step.path.c_str(), 0);
    if (entry && is_unchanged(step)) return true;
    if (stage_named(index_.get(), *stager_, step.path.c_str())) return true;
    return index_drop_below(index_.get(), step.path) &&
           stage_named(index_.get(), *stager_, step.path.c_str());
}

// Whether the path is in conflict, which is written down: both sides have it and are equal, or not.
bool Checkout::conflicts(CheckoutStep &step) {
    const git_index_entry *ours = entry_of(step), *theirs = step.with_path(step.theirs);
    if (ours && theirs && git_oid_equal(&ours->id, &theirs->id)) {
        if (git_index_entry_stage(ours)) ensure_entered(step);
        return false;
    }
    EntryPtr copy(ours ? zIndexEntryDup(zev_entry(ours)) : nullptr);
    if (copy) zIndexEntrySetStage(copy.get(), 0);
    const git_index_entry *base = step.with_path(step.base);
    zConflictAdd(index_.get(), base ? zev_entry(base) : nullptr, copy.get(),
                 theirs ? zev_entry(theirs) : nullptr);
    return true;
}

bool Checkout::move_to_trash(const CheckoutStep &step) {
    WorkPath place;
    if (!work_path_to_take(&place, repository_, step.wide.c_str())) return false;
    const std::u16string obstacle = find_obstacle(repository_, place);
    writer_->forget_directories();
    return obstacle.empty() || trash_->drop(obstacle.c_str());
}

// For good: what it holds is in the base's commit.
bool Checkout::remove_file(const CheckoutStep &step) {
    zWorkdirChread(repository_, step.wide.c_str(), false);
    writer_->forget_directories(); // those that it leaves without files go too
    return zWorkdirUnlink(repository_, step.wide.c_str());
}

// ---- The target added it

const zwchar *Checkout::added(CheckoutStep &step) {
    make_way(step, state_of(step));
    taken_.push_back(&step);
    // What stands in the way, of the path or of a directory above it, makes it a conflict.
    if (state_of(step) == FileState::missing) {
        git_index_entry theirs = *step.with_path(step.theirs);
        if (writer_->place(theirs))
            return conflicts(step) ? u"action.sConflicted" : u"action.sAdded";
    }
    if (state_of(step) == FileState::file && !ensure_entered(step)) return kSkipped;
    return conflicts(step) ? u"action.sConflicted" : u"action.sAdded";
}

// ---- The target modified it

const zwchar *Checkout::modified(CheckoutStep &step) {
    FileState state = state_of(step);
    make_way(step, state);
    const int32_t local = local_status(step);
    state = state_of(step);
    const bool through =
        local == Z_KIND_UNCHANGED || (local != Z_KIND_DELETED && state == FileState::missing);
    if (through && state == FileState::file && (is_in_use(step) || !is_unchanged(step)))
        return kSkipped;
    taken_.push_back(&step);
    if (through && !writer_->place(*step.with_path(step.theirs))) {
        taken_.pop_back();
        return kSkipped;
    }
    if (!through && state == FileState::file && local != Z_KIND_CONFLICTED && !ensure_entered(step))
        return kSkipped;
    return conflicts(step) ? u"action.sConflicted" : u"action.sUpdated";
}

// ---- The target deleted it

const zwchar *Checkout::deleted(CheckoutStep &step) {
    const int32_t local = local_status(step);
    const FileState state = state_of(step);
    if (local == Z_KIND_UNCHANGED && state == FileState::file &&
        (is_in_use(step) || !is_unchanged(step) || !remove_file(step)))
        return kSkipped;
    taken_.push_back(&step);
    if (local == Z_KIND_UNCHANGED || local == Z_KIND_DELETED) {
        index_drop(index_.get(), step.path.c_str());
        return u"action.sDeleted";
    }
    return conflicts(step) ? u"action.sConflicted" : u"action.sDeleted";
}

// ---- Force

const zwchar *Checkout::forced(CheckoutStep &step) {
    const int32_t local = local_status(step);
    const FileState state = state_of(step);
    const bool is_new = !step.base.mode && !entry_of(step);
    const bool changes = step.status == Z_KIND_ADDED || step.status == Z_KIND_MODIFIED;
    const bool rests = state == FileState::file && is_unchanged(step);
    if (!changes && local == Z_KIND_UNCHANGED && rests) return taken_.push_back(&step), nullptr;
    if (!clear_forced(step, local, state)) {
        tell(u"odb.eFailedToUpdateEntry_s", step.wide.c_str());
        return u"action.sFailed";
    }
    if (!writer_->place(*step.with_path(step.theirs))) return u"action.sFailed";
    taken_.push_back(&step);
    if (is_new || local == Z_KIND_DELETED) return u"action.sAdded";
    return local == Z_KIND_UNCHANGED && rests ? u"action.sUpdated" : u"action.sReverted";
}

// An unchanged file is replaced in place; anything else goes to the trash first.
bool Checkout::clear_forced(CheckoutStep &step, int32_t local, FileState state) {
    if (local != Z_KIND_UNCHANGED || state != FileState::file || !is_unchanged(step)) {
        if (!move_to_trash(step)) return false;
    } else {
        zWorkdirChread(repository_, step.wide.c_str(), false);
    }
    return drop_around(step);
}

// The path's entry, those below it, and those of files that stood for its directories.
bool Checkout::drop_around(const CheckoutStep &step) {
    for (size_t slash = step.path.find('/'); slash != std::string::npos;
         slash = step.path.find('/', slash + 1))
        if (!index_drop(index_.get(), step.path.substr(0, slash).c_str())) return false;
    return index_drop(index_.get(), step.path.c_str()) && index_drop_below(index_.get(), step.path);
}

const zwchar *Checkout::forced_delete(CheckoutStep &step) {
    const int32_t local = local_status(step);
    const FileState state = state_of(step);
    const bool rests = local == Z_KIND_UNCHANGED && state == FileState::file && is_unchanged(step);
    bool gone = state == FileState::missing;
    if (!gone && rests) gone = remove_file(step);
    if (!gone) {
        zWorkdirChread(repository_, step.wide.c_str(), false);
        gone = move_to_trash(step);
    }
    if (!gone) return u"action.sFailed";
    if (step.in_target) taken_.push_back(&step);
    if (!entry_of(step)) return nullptr;
    return index_drop(index_.get(), step.path.c_str()) ? u"action.sReverted" : u"action.sFailed";
}

} // namespace zev
