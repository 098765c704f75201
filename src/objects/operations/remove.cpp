// Removal: out of the work directory into the trash, then out of the index.
//
// Each file is in the trash before its entry goes. The index's file follows once for some hundreds
// of paths, since each write takes its whole length: killed in between, it still names what is in
// the trash, and a status shows that as missing.
#include "objects/work/index.hpp"

#include "common/utf.hpp"
#include "objects/notify/dialogs.hpp"
#include "objects/notify/left.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/trash/trash.hpp"
#include "objects/work/status.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <optional>

using namespace zev;

namespace {

// Removed paths for one write of the index: as many as the trash syncs together, and more in a
// large index, which is then written a few times at most.
size_t paths_a_write(const Index *index) {
    constexpr size_t kSynced = 256, kWrites = 16;
    return std::max(kSynced, git_index_entrycount(index->handle.get()) / kWrites);
}

bool is_overtaken() { return zErrorCode() == GIT_EMODIFIED || zErrorCode() == GIT_ELOCKED; }

class Removal {
  public:
    Removal(Index *index, PathSpec *spec)
        : index_(index), spec_(spec), notify_(spec->notify), batch_(paths_a_write(index)),
          was_clean_(!index->dirty) {}

    bool find();          // the list; may throw
    bool run();           // whether all of it ran; may throw
    void end(bool whole); // writes what is left to write

  private:
    enum class Drop { dropped, skipped, stopped };

    void list_patterns();
    bool list_status();
    bool is_stopped();
    bool remove(const std::u16string &path);
    Drop drop(const std::u16string &path);
    bool forget(const std::u16string &path);
    bool save();
    bool repeat();

    Index *index_;
    PathSpec *spec_;
    const Notify *notify_;
    std::vector<std::u16string> paths_;
    std::optional<TrashBatch> trash_;
    std::vector<const std::u16string *> unsaved_; // whose entries went since the index was written
    const std::u16string *last_ = nullptr;        // of those, also when they were written
    size_t batch_;
    bool was_clean_; // all that the index has to write is of this removal
    bool canceled_ = false;
};

// ---- What is to go

bool Removal::find() {
    if (spec_options(spec_) & Z_SPEC_LITERAL)
        list_patterns();
    else if (!list_status())
        return false;
    // One alone is as well synced by itself.
    trash_.emplace(index_->owner, paths_.size() > 1 ? paths_ : std::vector<std::u16string>());
    return true;
}

// A directory that is named goes as a whole, so nothing need be looked for.
void Removal::list_patterns() {
    for (uint64_t i = 0; i < zPathSpecCount(spec_); ++i)
        if (const zwchar *path = zPathSpecEntry(spec_, i); path && *path) paths_.emplace_back(path);
}

// A name that is no UTF-8 can't be handed on, and would be taken for a missing file.
bool Removal::list_status() {
    StatusScan scan(index_, spec_);
    if (!scan.run()) {
        if (spec_options(spec_) & Z_SPEC_MUST_MATCH) return true;
        return notify_raised(notify_);
    }
    scan.each([&](const StatusItem &item) {
        std::u16string path = to_wide(item.path);
        if (to_utf8(path) == item.path)
            paths_.push_back(std::move(path));
        else
            raise_args(path), notify_skipped(notify_, path.c_str());
        return 0;
    });
    return true;
}

// ---- One after the other

bool Removal::is_stopped() {
    if (!zNotifyIsUsrbrk(notify_)) return false;
    raise_canceled();
    return canceled_ = true;
}

bool Removal::run() {
    for (const std::u16string &path : paths_)
        if (is_stopped() || !remove(path)) return false;
    return true;
}

bool Removal::remove(const std::u16string &path) {
    const Drop done = drop(path);
    if (done != Drop::dropped) {
        notify_skipped(notify_, path.c_str());
        return done == Drop::skipped;
    }
    last_ = &path;
    unsaved_.push_back(&path);
    const bool due = unsaved_.size() >= batch_ || &path == &paths_.back();
    if (!forget(path) || (due && !save())) {
        notify_failed(notify_, u"odb.eFailedToRemoveEntry_s", path.c_str());
        return false;
    }
    notify_action(notify_, u"action.sDeleted", path.c_str());
    return true;
}

// A file that another program holds may be let go while the user looks.
Removal::Drop Removal::drop(const std::u16string &path) {
    while (!trash_->drop(path.c_str())) {
        const int32_t answer = ask_retry_or_skip(notify_, path.c_str());
        if (answer == kRetryCancel) return Drop::stopped;
        if (answer != kRetry) return Drop::skipped;
        if (is_stopped()) return Drop::stopped;
    }
    return Drop::dropped;
}

// Its own entries, and what was below a directory.
bool Removal::forget(const std::u16string &path) {
    const std::string name = to_utf8(tidy_path(path));
    return index_drop(index_, name.c_str()) && index_drop_below(index_, name);
}

bool Removal::save() {
    if (unsaved_.empty() || !index_->dirty) return true;
    const bool saved = zIndexWrite(index_) || repeat();
    unsaved_.clear(); // also if it failed, which is told once
    return saved;
}

// The files are in the trash. Where git was quicker to write the index, which knows no lock of
// ours, their entries leave the one that it has written.
bool Removal::repeat() {
    constexpr int kTries = 25;
    for (int tries = 0; tries < kTries && was_clean_ && is_overtaken(); ++tries) {
        os::sleep(20);
        if (!zIndexRead(index_, true)) continue;
        const auto gone = [this](const std::u16string *path) { return forget(*path); };
        if (std::ranges::all_of(unsaved_, gone) && zIndexWrite(index_)) return true;
    }
    return false;
}

void Removal::end(bool whole) {
    if (!save()) {
        notify_failed(notify_, u"odb.eFailedToRemoveEntry_s", last_->c_str());
        return notify_abort(notify_);
    }
    if (canceled_) return notify_cancel(notify_);
    whole ? notify_done(notify_) : notify_abort(notify_);
}

} // namespace

// True also for a list that was stopped: the caller writes what was done.
bool zIndexRemove(Index *index, PathSpec *spec) try {
    if (!index || !spec) return fail_args();
    Removal removal(index, spec);
    notify_start(spec->notify, u"action.sDelete");
    bool whole = false;
    try {
        whole = removal.find() && removal.run();
    } catch (...) {
        fail_thrown();
    }
    removal.end(whole);
    return true;
} catch (...) {
    return fail_thrown();
}
