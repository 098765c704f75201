// What a checkout has to look at: where base and target differ, and what the user did there.
#include "objects/operations/checkout.hpp"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/bulk.hpp"
#include "objects/store/object.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/tree_pairs.hpp"
#include "objects/work/left.hpp"
#include "system/os.hpp"
#include "zev/notify.h"
#include "zev/status.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace zev {

namespace {

git_index_entry entry_from(const git_tree_entry *from) {
    git_index_entry entry{};
    if (!from) return entry;
    entry.id = *git_tree_entry_id(from);
    entry.mode = git_tree_entry_filemode(from);
    return entry;
}

int32_t kind_of(TreePairs::Entry base, TreePairs::Entry target) {
    if (!base) return Z_KIND_ADDED;
    if (!target) return Z_KIND_DELETED;
    return is_same_entry(base, target) ? Z_KIND_UNCHANGED : Z_KIND_MODIFIED;
}

git_tree *handle_of(const Tree *tree) { return tree ? tree->handle.get() : nullptr; }

// As libgit2 sorts what differs: without regard to the case of ASCII letters.
bool sorts_before(std::string_view a, std::string_view b) {
    const auto lower = [](char c) {
        return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    };
    return std::ranges::lexicographical_compare(a, b, {}, lower, lower);
}

} // namespace

// With force also what the target leaves unchanged takes part.
bool Checkout::compare() {
    check_state(State::ready);
    PathSpec *paths = zCheckSpecPaths(spec_.get());
    bool selects_all = true; // of what differs
    const auto take = [&](std::string path, auto base, auto target) {
        const int32_t status = kind_of(base, target);
        if (spec_leaves_out(paths, status) || !spec_matches(paths, path)) {
            selects_all = false;
            return;
        }
        std::u16string wide = to_wide(path);
        steps_.push_back(
            {std::move(path), std::move(wide), status, true, entry_from(base), entry_from(target)});
    };
    TreePairs pairs(repository_->handle.get(), force(), take);
    if (!pairs.walk(handle_of(base_tree_.get()), handle_of(target_tree_.get())))
        return tell(pairs.is_after_cut() ? u"odb.eFailedToParseWorktree"
                                         : u"odb.eFailedToMergeRemoteChanages");
    if (steps_.empty()) return enter(State::compared);
    selects_all_ = selects_all;
    sort_steps();
    if (!stage_local_work()) return tell(u"odb.eFailedToMergeRemoteChanages");
    if (canceled_) return steps_.clear(), enter(State::compared);
    if (force()) add_local_steps();
    announce_to_trash();
    return enter(State::compared);
}

// Deletions first: a file may take the name of a directory that goes, or the other way round. Then
// the attributes, by which all others are written.
void Checkout::sort_steps() {
    const auto rank = [](const CheckoutStep &step) {
        if (step.status == Z_KIND_DELETED) return 0;
        return step.path.ends_with(".gitattributes") ? 1 : 2;
    };
    std::ranges::sort(steps_, [&](const CheckoutStep &a, const CheckoutStep &b) {
        const int a_rank = rank(a), b_rank = rank(b);
        return a_rank != b_rank ? a_rank < b_rank : sorts_before(a.path, b.path);
    });
}

bool Checkout::is_in_base(const char *path) const {
    git::Entry entry;
    const bool found =
        base_tree_ && !git_tree_entry_bypath(out(entry), base_tree_->handle.get(), path);
    git_error_clear();
    return found;
}

// What was added here, and what the target doesn't know, has to go first of all. What both trees
// have and no step is about was left out by its kind.
void Checkout::add_local_steps() {
    PathSpec *paths = zCheckSpecPaths(spec_.get());
    if (spec_leaves_out(paths, Z_KIND_ADDED)) return;
    std::unordered_set<std::string_view> known;
    for (const CheckoutStep &step : steps_) known.insert(step.path);
    std::vector<CheckoutStep> added;
    git_index *index = index_->handle.get();
    for (size_t i = 0, count = git_index_entrycount(index); i < count; ++i) {
        const std::string_view path = git_index_get_byindex(index, i)->path;
        const bool again = !added.empty() && added.back().path == path; // of a conflict
        if (again || known.contains(path) || !spec_matches(paths, path) || is_in_base(path.data()))
            continue;
        added.push_back({std::string(path), to_wide(path), Z_KIND_DELETED, false, {}, {}});
    }
    steps_.insert(steps_.begin(), std::make_move_iterator(added.begin()),
                  std::make_move_iterator(added.end()));
}

void Checkout::announce_to_trash() {
    std::vector<std::u16string> paths;
    if (force())
        for (const CheckoutStep &step : steps_)
            if (local_status(step)) paths.push_back(step.wide);
    trash_.emplace(repository_, std::move(paths));
}

// What the user did to files that the target changes, so that it is in the store before anything
// is written over, and shows as a change beside the base.
bool Checkout::stage_local_work() {
    struct stat status;
    const zwchar *path = zIndexPath(index_.get());
    if (path && os::lstat(path, &status)) index_time_ = status.st_mtim;
    const auto bulk = BulkWriter::begin(repository_);
    if (!bulk) return false;
    for (CheckoutStep &step : steps_) {
        canceled_ = canceled_ || zNotifyIsUsrbrk(notify_);
        if (canceled_) break;
        if (!stage(step)) unreadable_.emplace(step.path, zErrorReason());
    }
    canceled_ = canceled_ || zNotifyIsUsrbrk(notify_);
    return bulk->finish();
}

// Below a directory that is not there all is missing.
bool Checkout::has_directory(const CheckoutStep &step) {
    const size_t slash = step.path.rfind('/');
    const std::string_view directory(step.path.data(), slash == std::string::npos ? 0 : slash);
    if (directory == directory_) return has_directory_;
    struct stat status;
    directory_ = directory;
    has_directory_ = os::lstat(full_path(repository_, directory_).c_str(), &status);
    return has_directory_;
}

// False for what can't be read. A conflict stays one until the user resolves it, and what is
// behind a link is not ours. A break between the blocks of a file counts as one of the checkout.
bool Checkout::stage(CheckoutStep &step) {
    struct stat status;
    const git_index_entry *known = staged(step);
    if (!known && is_in_conflict(step)) return true;
    if (!has_directory(step) || !os::lstat(full_path(repository_, step.path).c_str(), &status))
        return step.absent = !known, true;
    const bool young = known && (known->mtime.seconds > index_time_.tv_sec ||
                                 (known->mtime.seconds == index_time_.tv_sec &&
                                  known->mtime.nanoseconds >= index_time_.tv_nsec));
    if (known && entry_has_stat(*known, status) && !young) return true;
    if (S_ISDIR(status.st_mode) || !check_path(step.path)) return true;
    if (writer_->is_behind_link(step.path)) return true;
    const Staging done = stager_->stage(step.path.c_str());
    canceled_ = canceled_ || (done == Staging::failed && zErrorClass() == error_class::kCanceled);
    return done == Staging::staged || raise_left(index_.get(), done, step.path.c_str());
}

} // namespace zev
