// What a checkout has to look at: where base and target differ, and what the user did there.
#include "objects/operations/checkout.hpp"

#include "common/errno.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/bulk.hpp"
#include "objects/store/object.hpp"
#include "objects/store/pathspec.hpp"
#include "system/os.hpp"
#include "zev/notify.h"
#include "zev/status.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace zev {

namespace {

// No path of 511 units, the longest that any operation takes, has more bytes; a tree that was made
// to be deeper would cost us the stack.
constexpr size_t kLongestDirectory = 3 * Z_PATH_MAX;

constexpr int32_t kCanceled = 6; // class of a break

// Two trees in step, directory by directory; those with the same id are opened only if all paths
// are wanted. Names are compared byte by byte: libgit2 compares trees without regard to case, and
// loses one of two twins.
class TreePairs {
  public:
    TreePairs(git_repository *repository, PathSpec *spec, bool all,
              std::vector<CheckoutStep> &steps)
        : repository_(repository), spec_(spec), all_(all), steps_(steps) {}

    bool walk(git_tree *base, git_tree *target, const std::string &directory = {});
    bool selects_all() const { return selects_all_; } // of what differs

  private:
    using Entry = const git_tree_entry *;

    static bool is_tree(Entry entry) {
        return entry && git_tree_entry_type(entry) == GIT_OBJECT_TREE;
    }
    bool meet(Entry base, Entry target, const std::string &directory);
    bool open(git::Tree &tree, Entry entry);
    void add(std::string path, Entry base, Entry target);

    git_repository *repository_;
    PathSpec *spec_;
    bool all_;
    bool selects_all_ = true;
    std::vector<CheckoutStep> &steps_;
};

git_index_entry entry_from(const git_tree_entry *from) {
    git_index_entry entry{};
    if (!from) return entry;
    entry.id = *git_tree_entry_id(from);
    entry.mode = git_tree_entry_filemode(from);
    return entry;
}

bool equal(const git_tree_entry *a, const git_tree_entry *b) {
    return a && b && git_oid_equal(git_tree_entry_id(a), git_tree_entry_id(b)) &&
           git_tree_entry_filemode(a) == git_tree_entry_filemode(b);
}

bool TreePairs::walk(git_tree *base, git_tree *target, const std::string &directory) {
    const size_t base_count = base ? git_tree_entrycount(base) : 0;
    const size_t target_count = target ? git_tree_entrycount(target) : 0;
    for (size_t i = 0, j = 0; i < base_count || j < target_count;) {
        Entry a = i < base_count ? git_tree_entry_byindex(base, i) : nullptr;
        Entry b = j < target_count ? git_tree_entry_byindex(target, j) : nullptr;
        const int order = !a ? 1 : !b ? -1 : git_tree_entry_cmp(a, b);
        if (order > 0) a = nullptr;
        if (order < 0) b = nullptr;
        i += a != nullptr;
        j += b != nullptr;
        if (!meet(a, b, directory)) return false;
    }
    return true;
}

// Of one name; a directory never meets a file of its name, trees sort them apart.
bool TreePairs::meet(Entry base, Entry target, const std::string &directory) {
    if (equal(base, target) && !all_) return true;
    std::string path = directory + git_tree_entry_name(base ? base : target);
    if (!is_tree(base) && !is_tree(target)) {
        return add(std::move(path), base, target), true;
    }
    if (path.size() > kLongestDirectory) return fail_os(ENAMETOOLONG);
    git::Tree base_tree, target_tree;
    return open(base_tree, base) && open(target_tree, target) &&
           walk(base_tree.get(), target_tree.get(), path + "/");
}

bool TreePairs::open(git::Tree &tree, Entry entry) {
    const int code = entry ? git_tree_lookup(out(tree), repository_, git_tree_entry_id(entry)) : 0;
    return code < 0 ? fail_git(code) : true;
}

void TreePairs::add(std::string path, Entry base, Entry target) {
    const int32_t status = !base                 ? Z_KIND_ADDED
                           : !target             ? Z_KIND_DELETED
                           : equal(base, target) ? Z_KIND_UNCHANGED
                                                 : Z_KIND_MODIFIED;
    if (spec_leaves_out(spec_, status) || !spec_matches(spec_, path)) {
        selects_all_ = false;
        return;
    }
    std::u16string wide = to_wide(path);
    steps_.push_back(
        {std::move(path), std::move(wide), status, true, entry_from(base), entry_from(target)});
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
    TreePairs pairs(repository_->handle.get(), zCheckSpecPaths(spec_.get()), force(), steps_);
    if (!pairs.walk(handle_of(base_tree_.get()), handle_of(target_tree_.get())))
        return tell(u"odb.eFailedToMergeRemoteChanages");
    if (steps_.empty()) return enter(State::compared);
    selects_all_ = pairs.selects_all();
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
        if (!stage(step)) unreadable_.insert(step.path);
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
    canceled_ = canceled_ || (done == Staging::failed && zErrorClass() == kCanceled);
    return done == Staging::staged;
}

} // namespace zev
