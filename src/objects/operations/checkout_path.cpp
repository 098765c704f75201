// What a checkout does at one path. Incoming changes land where the user changed nothing; where he
// did, the index keeps base, ours and theirs. With force his work goes to the trash.
#include "objects/operations/checkout.hpp"

#include "common/utf.hpp"
#include "objects/conflict/conflict.hpp"
#include "objects/notify/notify.hpp"
#include "system/os.hpp"
#include "zev/repository.h"
#include "zev/share.h"
#include "zev/status.h"
#include "zev/workdir.h"

#include <cerrno>

namespace zev {

namespace {

constexpr const zwchar *kSkipped = u"action.sSkipped";

// Of the bits of a mode only these mean something; old trees have others too.
bool same(const git_index_entry &a, const git_index_entry &b) {
    constexpr uint32_t kCounts = S_IFMT | 0100;
    return git_oid_equal(&a.id, &b.id) && (a.mode & kCounts) == (b.mode & kCounts);
}

// e69de29bb2d1d6434b8b29ae775ad8c2e48c5391, the id of no bytes
bool is_empty_blob(const git_oid &id) {
    git_oid empty;
    return !git_odb_hash(&empty, "", 0, GIT_OBJECT_BLOB) && git_oid_equal(&id, &empty);
}

} // namespace

// ---- What there is

// Lent until the index changes.
const git_index_entry *Checkout::staged(const CheckoutStep &step, int stage) const {
    return git_index_get_bypath(index_->handle.get(), step.path.c_str(), stage);
}

// Stage 0, of a conflict ours.
const git_index_entry *Checkout::entry_of(const CheckoutStep &step) const {
    const git_index_entry *entry = staged(step);
    return entry ? entry : staged(step, 2);
}

bool Checkout::in_conflict(const CheckoutStep &step) const {
    const git_index_entry *base, *ours, *theirs;
    return !git_index_conflict_get(&base, &ours, &theirs, index_->handle.get(), step.path.c_str());
}

// A conflict of an earlier day keeps something of the user's, maybe nowhere else.
bool Checkout::holds_ours(const CheckoutStep &step) const {
    return !staged(step) && staged(step, 2);
}

// How the index differs from the base at this path.
int32_t Checkout::local_status(const CheckoutStep &step) const {
    const git_index_entry *entry = staged(step);
    if (!entry && in_conflict(step)) return Z_KIND_CONFLICTED;
    if (!entry) return step.base.mode ? Z_KIND_DELETED : Z_KIND_UNCHANGED;
    if (!step.base.mode) return Z_KIND_ADDED;
    return same(*entry, step.base) ? Z_KIND_UNCHANGED : Z_KIND_MODIFIED;
}

// A link that is tracked as one counts as a file; what is behind a link is none of ours.
FileState Checkout::state_of(const CheckoutStep &step) {
    struct stat status;
    if (writer_->is_behind_link(step.path)) return FileState::other;
    if (!os::lstat(full_path(repository_, step.path).c_str(), &status)) {
        if (errno == ENOENT) return FileState::missing;
        return errno == EACCES ? FileState::denied : FileState::failed;
    }
    if (S_ISDIR(status.st_mode)) return FileState::directory;
    const git_index_entry *entry = entry_of(step);
    const bool own_link = S_ISLNK(status.st_mode) && entry && S_ISLNK(entry->mode);
    return S_ISREG(status.st_mode) || own_link ? FileState::file : FileState::other;
}

// The file is still the one that was compared: nobody saved it meanwhile. Giving it its write bits
// moves its change time.
bool Checkout::is_unchanged(const CheckoutStep &step, bool but_for_rights) const {
    struct stat status;
    const git_index_entry *entry = entry_of(step);
    if (!entry || unreadable_.contains(step.path) ||
        !os::lstat(full_path(repository_, step.path).c_str(), &status))
        return false;
    if (but_for_rights)
        status.st_ctim = {entry->ctime.seconds, static_cast<long>(entry->ctime.nanoseconds)};
    return entry_has_stat(*entry, status);
}

// A new file without bytes, beside theirs with some: of a process that died before it wrote them,
// mostly, and nothing is lost with it.
bool Checkout::is_hollow(const CheckoutStep &step) const {
    const git_index_entry *entry = staged(step);
    return entry && S_ISREG(entry->mode) && entry->file_size == 0 && is_empty_blob(entry->id) &&
           is_unchanged(step);
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

// Whether a file can be replaced or removed: it is as the base has it, and nobody has it open.
// Makes it writable.
bool Checkout::may_go(const CheckoutStep &step) {
    if (!is_unchanged(step)) return false;
    make_way(step, FileState::file);
    return !is_in_use(step) && is_unchanged(step, true);
}

// The index has the file as it is.
bool Checkout::ensure_entered(const CheckoutStep &step) {
    if (staged(step) && is_unchanged(step)) return true;
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
    index_drop(index_.get(), step.path.c_str()); // an earlier conflict, of another target
    const git_index_entry *base = step.with_path(step.base);
    zConflictAdd(index_.get(), base ? zev_entry(base) : nullptr, copy.get(),
                 theirs ? zev_entry(theirs) : nullptr);
    return true;
}

// What stands there; and what stands above it where a directory has to be, a link too.
bool Checkout::move_to_trash(const CheckoutStep &step) {
    struct stat status;
    for (size_t end = step.path.find('/');; end = step.path.find('/', end + 1)) {
        const std::string path = step.path.substr(0, end);
        if (!os::lstat(full_path(repository_, path).c_str(), &status)) return true;
        if (end != std::string::npos && S_ISDIR(status.st_mode)) continue;
        writer_->forget_directories();
        return trash_->drop(to_wide(path).c_str());
    }
}

// For good: what it holds is in the base's commit.
bool Checkout::remove_file(const CheckoutStep &step) {
    zWorkdirChread(repository_, step.wide.c_str(), false);
    writer_->forget_directories(); // those that it leaves without files go too
    return zWorkdirUnlink(repository_, step.wide.c_str());
}

// ---- The target added it

const zwchar *Checkout::added(CheckoutStep &step) {
    if (step.absent && writer_->place(*step.with_path(step.theirs), false))
        return taken_.push_back(&step), u"action.sAdded";
    make_way(step, state_of(step));
    const bool hollow = is_hollow(step);
    const bool free = hollow || (state_of(step) == FileState::missing && !holds_ours(step));
    // What stands in the way, of the path or of a directory above it, makes it a conflict.
    const bool placed = free && writer_->place(*step.with_path(step.theirs), hollow);
    const bool stands = !placed && state_of(step) == FileState::file;
    if (stands && local_status(step) != Z_KIND_CONFLICTED && !ensure_entered(step)) return kSkipped;
    taken_.push_back(&step);
    return conflicts(step) ? u"action.sConflicted" : u"action.sAdded";
}

// ---- The target modified it

const zwchar *Checkout::modified(CheckoutStep &step) {
    const int32_t local = local_status(step);
    FileState state = state_of(step);
    if (local == Z_KIND_UNCHANGED && state == FileState::file) {
        if (!may_go(step)) return kSkipped;
    } else {
        make_way(step, state);
        state = state_of(step);
    }
    const bool gone = state == FileState::missing && local != Z_KIND_DELETED && !holds_ours(step);
    const bool through = local == Z_KIND_UNCHANGED || gone;
    if (through && !writer_->place(*step.with_path(step.theirs), state == FileState::file))
        return kSkipped;
    if (!through && state == FileState::file && local != Z_KIND_CONFLICTED && !ensure_entered(step))
        return kSkipped;
    taken_.push_back(&step);
    return conflicts(step) ? u"action.sConflicted" : u"action.sUpdated";
}

// ---- The target deleted it

const zwchar *Checkout::deleted(CheckoutStep &step) {
    const int32_t local = local_status(step);
    if (local == Z_KIND_UNCHANGED && state_of(step) == FileState::file &&
        (!may_go(step) || !remove_file(step)))
        return kSkipped;
    taken_.push_back(&step);
    if (local != Z_KIND_UNCHANGED && local != Z_KIND_DELETED && entry_of(step))
        return conflicts(step) ? u"action.sConflicted" : u"action.sDeleted";
    index_drop(index_.get(), step.path.c_str());
    return u"action.sDeleted";
}

// ---- Force

const zwchar *Checkout::forced(CheckoutStep &step) {
    const int32_t local = local_status(step);
    const FileState state = state_of(step);
    const bool is_new = !step.base.mode && !entry_of(step);
    const bool changes = step.status == Z_KIND_ADDED || step.status == Z_KIND_MODIFIED;
    const bool rests = local == Z_KIND_UNCHANGED && state == FileState::file && is_unchanged(step);
    if (!changes && rests) return taken_.push_back(&step), nullptr;
    if (!writer_->has(step.theirs.id)) return u"action.sFailed";
    // An unchanged file is replaced in place; anything else goes to the trash first.
    if (rests) make_way(step, state);
    if ((!rests && !move_to_trash(step)) || !drop_above(step)) {
        tell(u"odb.eFailedToUpdateEntry_s", step.wide.c_str());
        return u"action.sFailed";
    }
    if (!writer_->place(*step.with_path(step.theirs), rests)) return u"action.sFailed";
    taken_.push_back(&step);
    if (is_new || local == Z_KIND_DELETED) return u"action.sAdded";
    return local == Z_KIND_UNCHANGED ? u"action.sUpdated" : u"action.sReverted";
}

// The entries of files that stood for the directories above.
bool Checkout::drop_above(const CheckoutStep &step) {
    for (size_t slash = step.path.find('/'); slash != std::string::npos;
         slash = step.path.find('/', slash + 1))
        if (!index_drop(index_.get(), step.path.substr(0, slash).c_str())) return false;
    return true;
}

const zwchar *Checkout::forced_delete(CheckoutStep &step) {
    const int32_t local = local_status(step);
    const FileState state = state_of(step);
    const bool rests = local == Z_KIND_UNCHANGED && state == FileState::file && is_unchanged(step);
    bool gone = state == FileState::missing || writer_->is_behind_link(step.path);
    if (!gone && rests) gone = remove_file(step);
    if (!gone) {
        zWorkdirChread(repository_, step.wide.c_str(), false);
        gone = move_to_trash(step);
    }
    if (!gone) return u"action.sFailed";
    if (step.in_target) taken_.push_back(&step);
    const bool known = entry_of(step);
    if (!index_drop(index_.get(), step.path.c_str())) return u"action.sFailed";
    return known ? u"action.sReverted" : nullptr;
}

} // namespace zev
