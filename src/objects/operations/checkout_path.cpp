// What a checkout does at one path. Incoming changes land where the user changed nothing; where he
// did, the index keeps base, ours and theirs. Content and mode of a file are two things: that one
// side changed one of them and the other side the other is no conflict. With force his work goes to
// the trash.
#include "objects/operations/checkout.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "objects/conflict/conflict.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/object.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/strict.hpp"
#include "system/os.hpp"
#include "zev/repository.h"
#include "zev/share.h"
#include "zev/status.h"
#include "zev/workdir.h"

#include <algorithm>
#include <cerrno>
#include <vector>

namespace zev {

namespace {

// Of the bits of a mode only these mean something; old trees have others too.
bool same_mode(uint32_t a, uint32_t b) {
    constexpr uint32_t kCounts = S_IFMT | 0100;
    return (a & kCounts) == (b & kCounts);
}

bool same(const git_index_entry &a, const git_index_entry &b) {
    return git_oid_equal(&a.id, &b.id) && same_mode(a.mode, b.mode);
}

// The commit of a repository within this one. Its directory is that repository's.
bool is_gitlink(const git_index_entry *entry) {
    return entry && (entry->mode & S_IFMT) == GIT_FILEMODE_COMMIT;
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

bool Checkout::is_in_conflict(const CheckoutStep &step) const {
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
    if (!entry && is_in_conflict(step)) return Z_KIND_CONFLICTED;
    if (!entry) return step.base.mode ? Z_KIND_DELETED : Z_KIND_UNCHANGED;
    if (!step.base.mode) return Z_KIND_ADDED;
    return same(*entry, step.base) ? Z_KIND_UNCHANGED : Z_KIND_MODIFIED;
}

// A link that is tracked as one counts as a file; what is behind a link is none of ours.
FileState Checkout::state_of(const CheckoutStep &step) {
    struct stat status;
    if (writer_->is_behind_link(step.path)) return FileState::other;
    if (!os::lstat(full_path(repository_, step.path).c_str(), &status))
        return errno == ENOENT ? FileState::missing : FileState::unseen;
    if (S_ISDIR(status.st_mode)) return FileState::directory;
    const git_index_entry *entry = entry_of(step);
    const bool own_link = S_ISLNK(status.st_mode) && entry && S_ISLNK(entry->mode);
    return S_ISREG(status.st_mode) || own_link ? FileState::file : FileState::other;
}

// The file is still the one that was compared: nobody saved it meanwhile. Giving it its write bits
// moves its change time.
bool Checkout::is_unchanged(const CheckoutStep &step, struct stat *found,
                            bool but_for_rights) const {
    struct stat status;
    const git_index_entry *entry = entry_of(step);
    if (!entry || unreadable_.contains(step.path) ||
        !os::lstat(full_path(repository_, step.path).c_str(), &status))
        return false;
    if (found) *found = status;
    return but_for_rights ? entry_has_content(*entry, status) : entry_has_stat(*entry, status);
}

// Index and disk are as the base has them: what stands there is in the store, or none of ours.
bool Checkout::is_as_base(const CheckoutStep &step, FileState state) const {
    if (local_status(step) != Z_KIND_UNCHANGED) return false;
    if (is_gitlink(staged(step))) return state == FileState::directory;
    return state == FileState::file && is_unchanged(step);
}

// A new file without bytes, beside theirs with some: of a process that died before it wrote them,
// mostly, and nothing is lost with it.
bool Checkout::is_hollow(const CheckoutStep &step) const {
    const git_index_entry *entry = staged(step);
    return entry && S_ISREG(entry->mode) && entry->file_size == 0 && is_empty_blob(entry->id) &&
           is_unchanged(step);
}

// Whether what had to go first, a file above or below, was left. Raised.
bool Checkout::is_held_up(const CheckoutStep &step) const {
    if (left_.empty()) return false;
    const auto below = left_.lower_bound(step.path + "/");
    bool held = below != left_.end() && below->starts_with(step.path + "/");
    for (size_t slash = step.path.find('/'); !held && slash != std::string::npos;
         slash = step.path.find('/', slash + 1))
        held = left_.contains(step.path.substr(0, slash));
    if (held) raise_other(word(u"reason.eHeldUp"), step.wide);
    return held;
}

// Whether a name that only we have differs from this one in case only: the next tree would hold
// both. Twins that the target has itself are its own affair. Raised.
bool Checkout::has_twin(const CheckoutStep &step) {
    if (entry_of(step) || !index_has_twin(index_.get(), step.path)) return false;
    std::u16string folded;
    if (!own_names_) {
        own_names_.emplace();
        git_index *index = index_->handle.get();
        for (size_t i = 0, count = git_index_entrycount(index); i < count; ++i) {
            const char *path = git_index_get_byindex(index, i)->path;
            git::Entry theirs;
            if (!git_tree_entry_bypath(out(theirs), target_tree_->handle.get(), path)) continue;
            fold_path(folded, path);
            own_names_->insert(folded);
        }
        git_error_clear();
    }
    fold_path(folded, step.path);
    if (!own_names_->contains(folded)) return false;
    raise_exists(step.wide);
    zSetErrorReason(u"%s", word(u"reason.eTwin"));
    return true;
}

// What keeps a file from standing at the path: what stands there, or above it where a directory has
// to be, a link too. Empty for nothing.
std::string Checkout::find_obstacle(const CheckoutStep &step) const {
    struct stat status;
    for (size_t end = step.path.find('/');; end = step.path.find('/', end + 1)) {
        std::string path = step.path.substr(0, end);
        if (!os::lstat(full_path(repository_, path).c_str(), &status)) return {};
        if (end == std::string::npos || !S_ISDIR(status.st_mode)) return path;
    }
}

// ---- Parts of the steps

// A directory without files goes, unless one is to be there; a file is made writable.
void Checkout::make_way(const CheckoutStep &step, FileState state) {
    if (state == FileState::directory && !is_gitlink(&step.theirs)) {
        zWorkdirRmdirR(repository_, step.wide.c_str());
        writer_->forget_directories();
    } else if (state == FileState::file) {
        make_writable(step);
    }
}

// A link has no mode of its own. Where the mode can't be changed, what follows tells whether it
// had to be.
void Checkout::make_writable(const CheckoutStep &step) {
    const std::u16string full = full_path(repository_, step.path);
    struct stat status;
    if (os::lstat(full.c_str(), &status) && S_ISREG(status.st_mode))
        os::set_readonly(full.c_str(), false);
}

// Makes a file that is as the base has it ready to be replaced or removed. Not one that another
// program has open, or that can't be written.
bool Checkout::free_file(const CheckoutStep &step) {
    struct stat status;
    if (!is_unchanged(step, &status)) return fail_os(EBUSY, step.wide);
    if (S_ISLNK(status.st_mode)) return true;
    const std::u16string full = full_path(repository_, step.path);
    if ((status.st_mode & 0600) != 0600) os::set_readonly(full.c_str(), false);
    const Owned<Share, zShareClose> share(zShareOpen(full.c_str(), u"r+b", Z_SHARE_NONE));
    return share && (is_unchanged(step, nullptr, true) || fail_os(EBUSY, step.wide));
}

// What the user did below, where the file is to stand: only the index may have it by now.
bool Checkout::has_conflict_below(const CheckoutStep &step) const {
    const std::string prefix = step.path + "/";
    size_t at = 0;
    if (git_index_find_prefix(&at, index_->handle.get(), prefix.c_str()) < 0) return false;
    while (const git_index_entry *entry = git_index_get_byindex(index_->handle.get(), at++)) {
        if (!std::string_view(entry->path).starts_with(prefix)) return false;
        if (git_index_entry_stage(entry)) return true;
    }
    return false;
}

// A repository within may have its files already, as long as the index has none of them as ours,
// and no commit of its own choice.
bool Checkout::can_place(const CheckoutStep &step, FileState state) {
    if (is_gitlink(staged(step))) return false;
    if (state == FileState::missing) return true;
    if (state != FileState::directory || !is_gitlink(&step.theirs)) return false;
    size_t below;
    return git_index_find_prefix(&below, index_->handle.get(), (step.path + "/").c_str()) < 0;
}

// The index has the file as it is.
bool Checkout::ensure_entered(const CheckoutStep &step) {
    return (staged(step) && is_unchanged(step)) ||
           stage_named(index_.get(), *stager_, step.path.c_str());
}

// What a path comes to that both sides have: its content and its mode, each from the side that
// changed it. False where both did, and where a link's target would get for a file's content or the
// other way round. What is new on both sides began as any file does. A conflict of an earlier day
// ends where both are equal by now, and by nothing else.
bool Checkout::merge(CheckoutStep &step, git_index_entry &both) const {
    const git_index_entry *ours = entry_of(step), *theirs = step.with_path(step.theirs);
    if (!ours || !theirs) return false;
    const bool open = git_index_entry_stage(ours);
    const git_index_entry *base = open ? staged(step, 1) : step.with_path(step.base);
    const uint32_t began = base ? base->mode : uint32_t{GIT_FILEMODE_BLOB};
    both = *theirs;
    if (!git_oid_equal(&ours->id, &theirs->id)) {
        const bool files = S_ISREG(began) && S_ISREG(ours->mode) && S_ISREG(theirs->mode);
        if (open || !base || !files) return false;
        if (git_oid_equal(&theirs->id, &base->id))
            both.id = ours->id;
        else if (!git_oid_equal(&ours->id, &base->id) || !is_unchanged(step))
            return false;
    }
    if (same_mode(ours->mode, began)) return true;
    both.mode = ours->mode;
    return same_mode(theirs->mode, began) || same_mode(theirs->mode, ours->mode);
}

// The index has the file as it stands, which gets what it lacks of what both sides come to. Only a
// mode is changed in its place: whoever has it open keeps what he has.
bool Checkout::take(CheckoutStep &step, git_index_entry both) {
    git_index_entry now = *staged(step);
    now.path = step.path.c_str();
    const bool files = S_ISREG(now.mode) && S_ISREG(both.mode);
    const bool stays = git_oid_equal(&now.id, &both.id);
    if (stays && same_mode(now.mode, both.mode)) return true;
    if (!stays || !files) return free_file(step) && writer_->place(both, true);
    now.mode = both.mode;
    return is_unchanged(step) ? writer_->enter_mode(now) : index_enter(index_.get(), now);
}

// Both sides have it, and what they did goes together, be it still a conflict of an earlier day; or
// it is one now.
Outcome Checkout::settle(CheckoutStep &step, Outcome agreed) {
    git_index_entry both{};
    if (!merge(step, both)) return record_conflict(step) ? Outcome::conflicted : Outcome::skipped;
    const StrictOff partial;
    if (!staged(step)) { // still open
        if (!ensure_entered(step))
            return index_enter(index_.get(), both) ? agreed : Outcome::skipped;
        if (!git_oid_equal(&staged(step)->id, &both.id)) return agreed; // and changed since
    }
    return take(step, both) ? agreed : Outcome::skipped;
}

// In place of ours, or of a conflict with an earlier target; these stay when it can't be. A partial
// store may lack each of the three.
bool Checkout::record_conflict(CheckoutStep &step) {
    std::vector<EntryPtr> before;
    for (int stage = 0; stage < 4; ++stage)
        if (const git_index_entry *entry = staged(step, stage))
            before.emplace_back(zIndexEntryDup(zev_entry(entry)));
    const git_index_entry *known = entry_of(step), *base = step.with_path(step.base);
    const git_index_entry *theirs = step.with_path(step.theirs);
    const EntryPtr ours(known ? zIndexEntryDup(zev_entry(known)) : nullptr);
    if (!std::ranges::all_of(before, [](const EntryPtr &copy) { return bool(copy); }) ||
        !ours != !known)
        return false;
    if (ours) zIndexEntrySetStage(ours.get(), 0);
    if (index_drop(index_.get(), step.path.c_str()) &&
        zConflictAdd(index_.get(), base ? zev_entry(base) : nullptr, ours.get(),
                     theirs ? zev_entry(theirs) : nullptr))
        return true;
    const KeptFailure kept;
    const StrictOff partial;
    index_drop(index_.get(), step.path.c_str());
    for (const EntryPtr &entry : before) index_enter(index_.get(), *git_entry(entry.get()));
    return false;
}

bool Checkout::move_to_trash(const CheckoutStep &step) {
    const std::string path = find_obstacle(step);
    if (path.empty()) return true;
    writer_->forget_directories();
    return trash_->drop(to_wide(path).c_str());
}

// For good: what it holds is in the base's commit.
bool Checkout::remove_file(const CheckoutStep &step) {
    const std::u16string full = full_path(repository_, step.path);
    if (!os::unlink(full.c_str()) && errno != ENOENT) return fail_errno(full.c_str());
    const size_t slash = step.path.rfind('/');
    if (slash != std::string::npos) emptied_.insert(step.path.substr(0, slash));
    return true;
}

// Directories that were left without files go. Each is looked at once, after all below it.
void Checkout::prune_emptied() {
    if (emptied_.empty()) return;
    writer_->forget_directories();
    while (!emptied_.empty()) {
        const std::string directory = *emptied_.begin();
        emptied_.erase(emptied_.begin());
        const size_t slash = directory.rfind('/');
        if (remove_hollow(full_path(repository_, directory)) && slash != std::string::npos)
            emptied_.insert(directory.substr(0, slash));
    }
}

// ---- The target added it

Outcome Checkout::add(CheckoutStep &step) {
    if (is_held_up(step) || has_twin(step)) return Outcome::skipped;
    if (has_conflict_below(step)) return settle(step, Outcome::added);
    const git_index_entry &theirs = *step.with_path(step.theirs);
    if (step.absent && writer_->place(theirs, false)) return Outcome::added;
    make_way(step, state_of(step));
    const FileState state = state_of(step);
    const bool hollow = is_hollow(step);
    if (hollow && !free_file(step)) return Outcome::skipped; // whoever has it open may write yet
    if (hollow || (can_place(step, state) && !holds_ours(step))) {
        if (writer_->place(theirs, hollow)) return Outcome::added;
        // What stands in the way makes it a conflict, else it just can't come in.
        if (hollow || find_obstacle(step).empty()) return Outcome::skipped;
    }
    if (state == FileState::unseen) {
        struct stat status;
        const bool is_seen = os::lstat(full_path(repository_, step.path).c_str(), &status);
        return fail_os(is_seen ? EBUSY : errno, step.wide), Outcome::skipped;
    }
    if (state_of(step) == FileState::file && local_status(step) != Z_KIND_CONFLICTED &&
        !ensure_entered(step))
        return Outcome::skipped;
    return settle(step, Outcome::added);
}

// ---- The target modified it

Outcome Checkout::modify(CheckoutStep &step) {
    const int32_t local = local_status(step);
    FileState state = state_of(step);
    if (local == Z_KIND_UNCHANGED && state == FileState::file) {
        if (!free_file(step)) return Outcome::skipped;
    } else {
        make_way(step, state);
        state = state_of(step);
    }
    const bool gone = state == FileState::missing && local != Z_KIND_DELETED && !holds_ours(step) &&
                      !is_gitlink(staged(step));
    if (local == Z_KIND_UNCHANGED || gone) {
        const bool replaces = state == FileState::file;
        const bool placed = writer_->place(*step.with_path(step.theirs), replaces);
        return placed ? Outcome::updated : Outcome::skipped;
    }
    if (state == FileState::file && local != Z_KIND_CONFLICTED && !ensure_entered(step))
        return Outcome::skipped;
    return settle(step, Outcome::updated);
}

// ---- The target deleted it

Outcome Checkout::remove(CheckoutStep &step) {
    const int32_t local = local_status(step);
    const FileState state = state_of(step);
    if (local != Z_KIND_UNCHANGED && local != Z_KIND_DELETED && entry_of(step))
        return settle(step, Outcome::deleted);
    if (local == Z_KIND_UNCHANGED && state == FileState::file &&
        (!free_file(step) || !remove_file(step)))
        return Outcome::skipped;
    if (is_gitlink(staged(step)) && state == FileState::directory) emptied_.insert(step.path);
    return index_drop(index_.get(), step.path.c_str()) ? Outcome::deleted : Outcome::skipped;
}

// ---- Force

Outcome Checkout::force_in(CheckoutStep &step) {
    const int32_t local = local_status(step);
    const FileState state = state_of(step);
    const bool is_new = !step.base.mode && !entry_of(step);
    const bool changes = step.status == Z_KIND_ADDED || step.status == Z_KIND_MODIFIED;
    const bool link = is_gitlink(&step.theirs);
    const bool rests = is_as_base(step, state);
    if (!changes && rests) return Outcome::left_alone;
    if (has_twin(step)) return Outcome::skipped;
    if (!link && !writer_->has(step.theirs.id)) return Outcome::failed;
    // An unchanged file is replaced in place, and the directory of a repository within stays;
    // anything else goes to the trash first.
    const bool replaces = rests && state == FileState::file;
    if (rests) make_way(step, state);
    const bool stays = replaces || (link && state == FileState::directory);
    if ((!stays && !move_to_trash(step)) || !drop_above(step)) {
        tell(u"odb.eFailedToUpdateEntry_s", step.wide.c_str());
        return Outcome::failed;
    }
    if (!writer_->place(*step.with_path(step.theirs), replaces)) return Outcome::failed;
    if (is_new || local == Z_KIND_DELETED) return Outcome::added;
    return local == Z_KIND_UNCHANGED ? Outcome::updated : Outcome::reverted;
}

// The entries of files that stood for the directories above.
bool Checkout::drop_above(const CheckoutStep &step) {
    for (size_t slash = step.path.find('/'); slash != std::string::npos;
         slash = step.path.find('/', slash + 1))
        if (!index_drop(index_.get(), step.path.substr(0, slash).c_str())) return false;
    return true;
}

Outcome Checkout::force_out(CheckoutStep &step) {
    const FileState state = state_of(step);
    const bool link = is_gitlink(entry_of(step)) && state == FileState::directory;
    bool gone = link || state == FileState::missing || writer_->is_behind_link(step.path);
    if (link) emptied_.insert(step.path);
    if (!gone && is_as_base(step, state)) gone = remove_file(step);
    if (!gone) {
        zWorkdirChread(repository_, step.wide.c_str(), false);
        gone = move_to_trash(step);
    }
    if (!gone) return Outcome::failed;
    const bool known = entry_of(step);
    if (!index_drop(index_.get(), step.path.c_str())) return Outcome::failed;
    return known ? Outcome::reverted : Outcome::left_alone;
}

} // namespace zev
