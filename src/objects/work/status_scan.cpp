// One status: two comparisons by libgit2, head with index and index with work directory, merged by
// path into one kind a file.
//
// Two things make it fast. libgit2 is asked for differences only, and what is unchanged is read
// off the index: otherwise it makes a record of each file in both comparisons. And a spec of
// exact names is given to libgit2 as such, so that a status of ten files in a project of a
// hundred thousand looks at ten. What the spec leaves open is decided by our own matcher while
// the comparison runs, before renames are looked for: a rename needs both its ends selected.
#include "objects/work/index.hpp"
#include "objects/work/status.hpp"
#include "objects/work/too_deep.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/renames.hpp"
#include "system/clock.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <unordered_set>

#include <git2/sys/diff.h>

namespace zev {

namespace {

bool before(const char *a, const char *b) { return strcmp(a, b) < 0; }
const char *path_of(const git_diff_delta *delta) { return delta->new_file.path; }

void sort_by_path(auto &changes, auto path_of) {
    const auto by_path = [&](const auto &a, const auto &b) {
        return before(path_of(a), path_of(b));
    };
    if (!std::ranges::is_sorted(changes, by_path)) std::ranges::sort(changes, by_path);
}

// The deltas of a comparison in the order of their paths.
std::vector<const git_diff_delta *> deltas_of(const git_diff *diff) {
    std::vector<const git_diff_delta *> deltas(diff ? git_diff_num_deltas(diff) : 0);
    for (size_t i = 0; i < deltas.size(); ++i) deltas[i] = git_diff_get_delta(diff, i);
    sort_by_path(deltas, path_of);
    return deltas;
}

uint32_t staged_word(const git_diff_delta *delta) {
    switch (delta->status) {
    case GIT_DELTA_ADDED:
    case GIT_DELTA_COPIED:
        return GIT_STATUS_INDEX_NEW;
    case GIT_DELTA_DELETED:
        return GIT_STATUS_INDEX_DELETED;
    case GIT_DELTA_MODIFIED:
        return GIT_STATUS_INDEX_MODIFIED;
    case GIT_DELTA_TYPECHANGE:
        return GIT_STATUS_INDEX_TYPECHANGE;
    case GIT_DELTA_CONFLICTED:
        return GIT_STATUS_CONFLICTED;
    case GIT_DELTA_RENAMED:
        return git_oid_equal(&delta->old_file.id, &delta->new_file.id)
                   ? GIT_STATUS_INDEX_RENAMED
                   : GIT_STATUS_INDEX_RENAMED | GIT_STATUS_INDEX_MODIFIED;
    default:
        return GIT_STATUS_CURRENT;
    }
}

uint32_t workdir_word(const git_diff_delta *delta) {
    switch (delta->status) {
    case GIT_DELTA_ADDED:
    case GIT_DELTA_COPIED:
    case GIT_DELTA_UNTRACKED:
        return GIT_STATUS_WT_NEW;
    case GIT_DELTA_UNREADABLE:
        return GIT_STATUS_WT_UNREADABLE;
    case GIT_DELTA_DELETED:
        return GIT_STATUS_WT_DELETED;
    case GIT_DELTA_MODIFIED:
        return GIT_STATUS_WT_MODIFIED;
    case GIT_DELTA_IGNORED:
        return GIT_STATUS_IGNORED;
    case GIT_DELTA_TYPECHANGE:
        return GIT_STATUS_WT_TYPECHANGE;
    case GIT_DELTA_CONFLICTED:
        return GIT_STATUS_CONFLICTED;
    default:
        return GIT_STATUS_CURRENT;
    }
}

// What is left out is not looked for: an ignored directory may be a large one.
uint32_t comparison_flags(uint32_t options) {
    uint32_t flags = GIT_DIFF_INCLUDE_TYPECHANGE;
    if (!(options & Z_SPEC_NO_UNTRACKED))
        flags |= GIT_DIFF_INCLUDE_UNTRACKED | GIT_DIFF_RECURSE_UNTRACKED_DIRS;
    if (!(options & Z_SPEC_NO_IGNORED))
        flags |= GIT_DIFF_INCLUDE_IGNORED | GIT_DIFF_RECURSE_IGNORED_DIRS;
    if (!(options & Z_SPEC_NO_UNREADABLE)) flags |= GIT_DIFF_INCLUDE_UNREADABLE;
    return flags;
}

} // namespace

int32_t kind_of(uint32_t word) {
    constexpr struct {
        uint32_t flag;
        int32_t kind;
    } kRules[] = {
        // the first that is set
        {GIT_STATUS_IGNORED, Z_KIND_IGNORED},
        {GIT_STATUS_CONFLICTED, Z_KIND_CONFLICTED},
        {GIT_STATUS_WT_DELETED, Z_KIND_MISSING},
        {GIT_STATUS_INDEX_TYPECHANGE, Z_KIND_TYPECHANGE},
        {GIT_STATUS_INDEX_NEW, Z_KIND_ADDED},
        {GIT_STATUS_INDEX_DELETED, Z_KIND_DELETED},
        {GIT_STATUS_INDEX_RENAMED, Z_KIND_RENAMED},
        {GIT_STATUS_INDEX_MODIFIED, Z_KIND_MODIFIED},
        {GIT_STATUS_WT_NEW, Z_KIND_UNTRACKED},
        {GIT_STATUS_WT_MODIFIED, Z_KIND_MODIFIED},
        {GIT_STATUS_WT_TYPECHANGE, Z_KIND_TYPECHANGE},
        {GIT_STATUS_WT_UNREADABLE, Z_KIND_UNREADABLE},
        {GIT_STATUS_WT_RENAMED, Z_KIND_RENAMED},
    };
    if (!word) return Z_KIND_UNCHANGED;
    for (const auto &rule : kRules) {
        if (!(word & rule.flag)) continue;
        const bool both = rule.kind == Z_KIND_MISSING && word & GIT_STATUS_INDEX_DELETED;
        return both ? Z_KIND_DELETED : rule.kind;
    }
    return -1;
}

// ---- The scan

bool StatusScan::run() {
    index_refresh(index_);
    if (!find_head()) return false;
    const uint32_t options = spec_options(spec_);
    git_diff_options how;
    git_diff_options_init(&how, GIT_DIFF_OPTIONS_VERSION);
    how.flags = comparison_flags(options);
    DiffLimit limit(spec_, how);
    limit.narrow(index_->owner, index_->handle.get(), head_.get());
    if (!compare_staged(how) || (!(options & Z_SPEC_INDEX_ONLY) && !compare_workdir(how)))
        return limit.thrown() ? fail_memory() : Failure{};
    pair(limit);
    save_stat(limit);
    return true;
}

// A head that is not born compares like an empty one.
bool StatusScan::find_head() {
    git::Object tree;
    git::Reference head;
    git_repository *repository = index_->owner->handle.get();
    int code = git_repository_head(out(head), repository);
    if (code == GIT_ENOTFOUND || code == GIT_EUNBORNBRANCH) return true;
    if (!code) code = git_reference_peel(out(tree), head.get(), GIT_OBJECT_TREE);
    if (code < 0) return fail_git(code);
    head_.reset(reinterpret_cast<git_tree *>(tree.release()));
    return true;
}

// Unchanged entries are taken from the index itself: libgit2 would make a record of each one on
// either side.
bool StatusScan::compare_staged(git_diff_options &how) {
    git_repository *repository = index_->owner->handle.get();
    int code =
        git_diff_tree_to_index(out(staged_), repository, head_.get(), index_->handle.get(), &how);
    if (code < 0) return fail_git(code);
    if (!(spec_options(spec_) & Z_SPEC_NO_RENAMED)) return find_renames(how);
    collect_staged(staged_.get(), {});
    return true;
}

namespace {

bool find_similar(git_diff *diff) {
    git_diff_find_options find;
    git_diff_find_options_init(&find, GIT_DIFF_FIND_OPTIONS_VERSION);
    find.flags = GIT_DIFF_FIND_FOR_UNTRACKED;
    const int code = git_diff_find_similar(diff, &find);
    return code < 0 ? fail_git(code) : true;
}

// Whether there are changes without a pair that could be the two ends of a rename.
bool may_hold_rename(const git_diff *diff, const std::vector<size_t> &sources) {
    bool gone = false, come = false;
    for (size_t i = 0; i < sources.size(); ++i) {
        if (sources[i] != kNoSource) continue;
        const git_delta_t status = git_diff_get_delta(diff, i)->status;
        gone |= status == GIT_DELTA_DELETED || status == GIT_DELTA_TYPECHANGE;
        come |= status == GIT_DELTA_ADDED || status == GIT_DELTA_TYPECHANGE;
    }
    return gone && come;
}

// Leaves paths out of a comparison, besides what the limit leaves out.
struct LeftOut {
    std::unordered_set<std::string_view> paths;
    git_diff_notify_cb select;
    void *payload;

    static int asked(const git_diff *diff, const git_diff_delta *delta, const char *matched,
                     void *self) {
        const auto *mine = static_cast<const LeftOut *>(self);
        if (mine->paths.contains(path_of(delta))) return 1;
        return mine->select ? mine->select(diff, delta, matched, mine->payload) : 0;
    }
};

} // namespace

// Files that moved as they were are paired here, libgit2 looks for similar ones among the rest. It
// can't be told to leave out what has a pair, so that the rest is compared once more.
bool StatusScan::find_renames(const git_diff_options &how) {
    const std::vector<size_t> sources = pair_identical(staged_.get());
    const bool paired = std::ranges::any_of(sources, [](size_t at) { return at != kNoSource; });
    const bool may_hold = may_hold_rename(staged_.get(), sources);
    if (may_hold && !(paired ? compare_rest(sources, how) : find_similar(staged_.get())))
        return false;
    collect_staged(staged_.get(), paired ? sources : std::vector<size_t>());
    return true;
}

bool StatusScan::compare_rest(const std::vector<size_t> &sources, git_diff_options how) {
    LeftOut left_out{{}, how.notify_cb, how.payload};
    for (size_t i = 0; i < sources.size(); ++i)
        if (sources[i] != kNoSource)
            left_out.paths.insert(path_of(git_diff_get_delta(staged_.get(), i)));
    how.notify_cb = LeftOut::asked;
    how.payload = &left_out;
    const int code = git_diff_tree_to_index(out(rest_), index_->owner->handle.get(), head_.get(),
                                            index_->handle.get(), &how);
    return code < 0 ? fail_git(code) : find_similar(rest_.get());
}

// Without `sources` nothing was paired. Where the rest was compared, its deltas count.
void StatusScan::collect_staged(const git_diff *diff, const std::vector<size_t> &sources) {
    const auto add_delta = [&](const git_diff_delta *delta) {
        const bool renamed = delta->status == GIT_DELTA_RENAMED;
        changes_.push_back({delta, renamed ? &delta->old_file : nullptr, staged_word(delta)});
    };
    const size_t count = git_diff_num_deltas(diff);
    changes_.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const git_diff_delta *delta = git_diff_get_delta(diff, i);
        if (sources.empty() || (sources[i] == kNoSource && !rest_))
            add_delta(delta);
        else if (sources[i] != kNoSource && sources[i] != i)
            changes_.push_back(
                {delta, &git_diff_get_delta(diff, sources[i])->old_file, GIT_STATUS_INDEX_RENAMED});
    }
    for (size_t i = 0; rest_ && i < git_diff_num_deltas(rest_.get()); ++i)
        add_delta(git_diff_get_delta(rest_.get(), i));
    sort_by_path(changes_, [](const Staged &change) { return path_of(change.delta); });
}

bool StatusScan::compare_workdir(git_diff_options &how) {
    constexpr uint32_t kIgnored = GIT_DIFF_INCLUDE_IGNORED | GIT_DIFF_RECURSE_IGNORED_DIRS;
    return compare_reachable(index_->owner, spec_ ? spec_->notify : nullptr, [&](bool again) {
        if (again) how.flags &= ~kIgnored;
        return git_diff_index_to_workdir(out(worked_), index_->owner->handle.get(),
                                         index_->handle.get(), &how);
    });
}

// Where the first comparison has nothing to say, head holds what the index holds.
void StatusScan::add(const Staged *staged, const git_diff_delta *worked) {
    StatusItem item{};
    item.path = path_of(staged ? staged->delta : worked);
    item.word = (staged ? staged->word : 0) | (worked ? workdir_word(worked) : 0);
    item.kind = kind_of(item.word);
    if (staged) {
        if (staged->from) item.from = staged->from->path;
        item.old_id = staged->from ? &staged->from->id : &staged->delta->old_file.id;
        item.new_id = &staged->delta->new_file.id;
    } else if (const auto *entry = git_index_get_bypath(index_->handle.get(), item.path, 0)) {
        item.old_id = item.new_id = &entry->id;
    }
    items_.push_back(item);
}

namespace {

bool is_unchanged(const git_index_entry &entry, const zwchar *full, const struct stat &status,
                  Filters &filters) {
    if (!S_ISREG(status.st_mode) || filters.may_apply(entry.path)) return false;
    git_oid id;
    struct stat after;
    return !git_odb_hashfile(&id, to_utf8(full).c_str(), GIT_OBJECT_BLOB) &&
           git_oid_equal(&id, &entry.id) && os::lstat(full, &after) && same_stat(status, after);
}

} // namespace

// libgit2 compares a drawing as its attributes would have it stored; it is stored as it is.
bool StatusScan::is_touched_drawing(const git_diff_delta *delta, std::optional<Filters> &filters) {
    const char *path = delta->new_file.path;
    if (delta->status != GIT_DELTA_MODIFIED || !is_drawing_name(path)) return false;
    if (!filters) filters.emplace(index_);
    if (!filters->are_set(path)) return false;
    const git_index_entry *entry = git_index_get_bypath(index_->handle.get(), path, 0);
    struct stat status;
    const std::u16string full = full_path(index_->owner, path);
    return entry && os::lstat(full.c_str(), &status) &&
           is_unchanged(*entry, full.c_str(), status, *filters);
}

// Both comparisons by one merge.
void StatusScan::pair(const DiffLimit &limit) {
    auto worked = deltas_of(worked_.get());
    std::optional<Filters> filters;
    std::erase_if(worked, [&](auto *delta) { return is_touched_drawing(delta, filters); });
    items_.reserve(changes_.size() + worked.size());
    for (size_t s = 0, w = 0; s < changes_.size() || w < worked.size();) {
        int order = s == changes_.size() ? 1 : w == worked.size() ? -1 : 0;
        if (!order) order = strcmp(path_of(changes_[s].delta), path_of(worked[w]));
        add(order <= 0 ? &changes_[s] : nullptr, order >= 0 ? worked[w] : nullptr);
        if (order <= 0) ++s;
        if (order >= 0) ++w;
    }
    if (!spec_leaves_out(spec_, Z_KIND_UNCHANGED))
        add_unchanged(limit.entries(index_->handle.get()));
    std::erase_if(items_, [&](auto &item) { return spec_leaves_out(spec_, item.kind); });
}

// Entries of the index that no comparison named. Their paths are copied: who is told of them may
// change the index.
void StatusScan::add_unchanged(const std::vector<const git_index_entry *> &entries) {
    std::vector<StatusItem> all;
    all.reserve(items_.size() + entries.size());
    size_t room = 0;
    for (const git_index_entry *entry : entries) room += strlen(entry->path) + 1;
    names_.reserve(room); // and so stays where it is
    const auto keep = [&](const char *path) {
        const size_t at = names_.size();
        names_.insert(names_.end(), path, path + strlen(path) + 1);
        return names_.data() + at;
    };
    auto item = items_.begin();
    for (const git_index_entry *entry : entries) {
        while (item != items_.end() && before(item->path, entry->path)) all.push_back(*item++);
        if (item != items_.end() && strcmp(item->path, entry->path) == 0) continue;
        all.push_back({keep(entry->path), nullptr, Z_KIND_UNCHANGED, 0, &entry->id, &entry->id});
    }
    all.insert(all.end(), item, items_.end());
    items_ = std::move(all);
}

// ---- Times of files that were touched but not changed
//
// libgit2 reads such a file at every status. Under the index's lock its new times go into the
// entry, so that it is read once. The comparison has read the file a moment ago, but only times
// from before the lock was taken prove that it is still what was read; a file with newer ones is
// read again.

namespace {

// Files that were read though they turned out to be unchanged?
bool has_touched(const git_diff *worked) {
    git_diff_perfdata seen = GIT_DIFF_PERFDATA_INIT;
    if (git_diff_get_perfdata(&seen, worked)) return false;
    size_t expected = 0;
    for (size_t i = 0; i < git_diff_num_deltas(worked); ++i) {
        const git_diff_delta *delta = git_diff_get_delta(worked, i);
        if (delta->status == GIT_DELTA_MODIFIED && !git_oid_is_zero(&delta->new_file.id))
            ++expected;
    }
    return seen.oid_calculations > expected;
}

} // namespace

void StatusScan::save_stat(const DiffLimit &limit) {
    if (!index_->lock || index_->dirty || !worked_ || !has_touched(worked_.get())) return;
    const std::u16string lock = lock_path(to_wide(git_index_path(index_->handle.get())));
    struct stat taken;
    if (!os::lstat(lock.c_str(), &taken)) return;
    Filters filters(index_);
    const auto worked = deltas_of(worked_.get());
    auto delta = worked.begin();
    bool changed = false;
    for (const git_index_entry *entry : limit.entries(index_->handle.get())) {
        while (delta != worked.end() && before(path_of(*delta), entry->path)) ++delta;
        if (delta != worked.end() && strcmp(path_of(*delta), entry->path) == 0) continue;
        changed |= refresh_stat(*entry, taken.st_mtim, filters);
    }
    // Without completing the lock's copy: old and new file say the same of every entry. A file
    // system that takes no writes just goes without, and so does what another program has written.
    const KeptFailure kept;
    if (changed && !index_replace(index_)) git_error_clear();
}

// In place: the id stays, and with it what the index knows of its trees, which entering the file
// anew would throw away.
bool StatusScan::refresh_stat(const git_index_entry &entry, const timespec &locked,
                              Filters &filters) {
    const std::u16string full = full_path(index_->owner, entry.path);
    struct stat status;
    if (!os::lstat(full.c_str(), &status) || entry_has_stat(entry, status)) return false;
    if ((status.st_mode & S_IFMT) != (entry.mode & S_IFMT)) return false;
    const bool old = is_before(status.st_mtim, locked) && is_before(status.st_ctim, locked);
    if (!old && !is_unchanged(entry, full.c_str(), status, filters)) return false;
    auto &mine = const_cast<git_index_entry &>(entry);
    entry_set_stat(mine, status);
    mine.flags_extended |= GIT_INDEX_ENTRY_UPTODATE; // else writing the index reads it once more
    return true;
}

} // namespace zev
