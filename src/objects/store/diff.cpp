// Comparing trees, or a tree and an index. The comparison is libgit2's; paths are selected by our
// own matcher, and renames found here, since only identical content counts as one. Where a file
// became a link, or a link a file, libgit2 is left to say what that means for renames.
#include "objects/store/diff.hpp"

#include "common/utf.hpp"
#include "objects/store/diff_limit.hpp"
#include "objects/store/object.hpp"
#include "objects/store/renames.hpp"
#include "zev/status.h"

#include <vector>

#include <sys/stat.h>

using namespace zev;

namespace {

// ---- Copying libgit2's deltas

enum Sides { kOld = 1, kNew = 2 };

int sides_of(git_delta_t status) {
    switch (status) {
    case GIT_DELTA_UNMODIFIED:
    case GIT_DELTA_ADDED:
    case GIT_DELTA_IGNORED:
    case GIT_DELTA_UNTRACKED:
        return kNew;
    case GIT_DELTA_DELETED:
        return kOld;
    default:
        return kOld | kNew;
    }
}

std::unique_ptr<DiffFile> make_file(const git_diff_file &file) {
    auto copy = std::make_unique<DiffFile>();
    copy->id = *git::oid(&file.id);
    copy->size = file.size;
    copy->flags = file.flags;
    copy->mode = file.mode;
    copy->id_abbrev = file.id_abbrev;
    copy->path.reset(wide_dup(file.path, strlen(file.path)));
    if (!copy->path) throw std::bad_alloc();
    return copy;
}

std::unique_ptr<DiffEntry> make_entry(const git_diff_delta &delta) {
    auto entry = std::make_unique<DiffEntry>();
    entry->status = delta.status;
    entry->flags = delta.flags;
    entry->similarity = delta.similarity;
    entry->files = delta.nfiles;
    const int sides = sides_of(delta.status);
    if (sides & kOld) entry->old_file = make_file(delta.old_file);
    if (sides & kNew) entry->new_file = make_file(delta.new_file);
    return entry;
}

// ---- One comparison, step by step

// A spec without options asks for changes only; one with options names what is left out in full.
uint32_t comparison_flags(uint32_t options) {
    if (!options) options = Z_SPEC_NO_UNCHANGED;
    uint32_t flags = GIT_DIFF_IGNORE_CASE;
    if (!(options & Z_SPEC_NO_UNCHANGED)) flags |= GIT_DIFF_INCLUDE_UNMODIFIED;
    if (!(options & Z_SPEC_NO_IGNORED))
        flags |= GIT_DIFF_INCLUDE_IGNORED | GIT_DIFF_RECURSE_IGNORED_DIRS;
    if (!(options & Z_SPEC_NO_UNTRACKED))
        flags |= GIT_DIFF_INCLUDE_UNTRACKED | GIT_DIFF_RECURSE_UNTRACKED_DIRS;
    if (!(options & Z_SPEC_NO_TYPECHANGE))
        flags |= GIT_DIFF_INCLUDE_TYPECHANGE | GIT_DIFF_INCLUDE_TYPECHANGE_TREES;
    if (!(options & Z_SPEC_NO_UNREADABLE)) flags |= GIT_DIFF_INCLUDE_UNREADABLE;
    return flags;
}

// Puts the caller's wish to stop behind the limit's question.
struct Cancel {
    DiffCancel wanted;
    git_diff_notify_cb select = nullptr;
    void *payload = nullptr;

    bool asked(const git_diff *diff, const git_diff_delta *delta, const char *matched) const {
        return wanted && wanted(diff, delta, matched, reinterpret_cast<void *>(wanted));
    }
    void install(git_diff_options &how) {
        if (!wanted) return;
        select = how.notify_cb;
        payload = how.payload;
        how.notify_cb = [](auto *diff, auto *delta, const char *matched, void *self) -> int {
            auto *mine = static_cast<Cancel *>(self);
            const int skip = mine->select ? mine->select(diff, delta, matched, mine->payload) : 0;
            return skip ? skip : mine->asked(diff, delta, matched) ? -1 : 0;
        };
        how.payload = this;
    }
};

bool is_file(const git_diff_file &file) { return (file.mode & S_IFMT) == S_IFREG; }

bool has_type_change(const git_diff *diff) {
    return git_diff_num_deltas_of_type(diff, GIT_DELTA_TYPECHANGE) > 0;
}

int find_identical(git_diff *diff) {
    git_diff_find_options how;
    git_diff_find_options_init(&how, GIT_DIFF_FIND_OPTIONS_VERSION);
    how.flags = GIT_DIFF_FIND_RENAMES | GIT_DIFF_FIND_EXACT_MATCH_ONLY;
    how.rename_threshold = 100;
    how.rename_limit = SIZE_MAX;
    return git_diff_find_similar(diff, &how);
}

// Of the added file's entry, to which the side comes that libgit2 filed as deleted.
std::unique_ptr<DiffEntry> make_rename(const git_diff_delta &from, const git_diff_delta &to) {
    auto entry = make_entry(to);
    entry->status = Z_KIND_RENAMED;
    entry->similarity = 100;
    entry->files = 2;
    entry->old_file = make_file(from.old_file);
    return entry;
}

// The deltas as records; null when the caller canceled.
DiffListPtr copy_deltas(const git_diff *diff, bool renames, const Cancel &cancel) {
    const size_t count = git_diff_num_deltas(diff);
    DiffListPtr list = diff_list_new(count);
    std::vector<size_t> sources(count, kNoSource);
    if (renames) sources = pair_identical(diff);
    for (size_t i = 0; i < count; ++i) {
        if (sources[i] == i) continue; // its new place tells of it
        const git_diff_delta *delta = git_diff_get_delta(diff, i);
        const auto *source =
            sources[i] == kNoSource ? nullptr : git_diff_get_delta(diff, sources[i]);
        const bool renamed = source || delta->status == GIT_DELTA_RENAMED;
        if (renamed && cancel.asked(diff, delta, nullptr)) return nullptr;
        diff_list_append(list.get(), source ? make_rename(*source, *delta) : make_entry(*delta));
    }
    return list;
}

// A comparison by `run`, which gets options and gives a git_diff. Whether libgit2 disregards case
// there, as it does between trees, decides whether it can be told names.
template <class F> DiffList *compare(PathSpec *spec, DiffCancel wanted, bool caseless, F run) {
    const uint32_t options = spec_options(spec);
    git_diff_options how;
    git_diff_options_init(&how, GIT_DIFF_OPTIONS_VERSION);
    how.flags = comparison_flags(options);
    DiffLimit limit(spec, how);
    if (caseless) limit.narrow_caseless();
    Cancel cancel{wanted};
    cancel.install(how);
    git::Diff diff;
    int code = run(out(diff), &how);
    if (limit.thrown()) return fail_memory();
    bool renames = !(options & Z_SPEC_NO_RENAMED);
    if (!code && renames && has_type_change(diff.get())) {
        code = find_identical(diff.get());
        renames = false; // they are in
    }
    if (code < 0) return fail_git(code);
    DiffListPtr list = copy_deltas(diff.get(), renames, cancel);
    if (!list) return git_error_set_str(GIT_ERROR_CALLBACK, "canceled"), fail_git(GIT_ERROR);
    if (zVectorIsEmpty(&list->entries) && options & Z_SPEC_MUST_MATCH) return raise_not_found();
    return list.release();
}

git_tree *handle_of(Tree *tree) { return tree ? tree->handle.get() : nullptr; }

} // namespace

DiffList *zDiffTreeToTree(Tree *old_tree, Tree *new_tree, PathSpec *spec, DiffCancel cancel) try {
    if (!old_tree && !new_tree) return fail_args();
    git_repository *repository = (old_tree ? old_tree : new_tree)->owner->handle.get();
    return compare(spec, cancel, true, [&](git_diff **diff, const git_diff_options *how) {
        return git_diff_tree_to_tree(diff, repository, handle_of(old_tree), handle_of(new_tree),
                                     how);
    });
} catch (...) {
    return fail_thrown();
}

namespace zev {

std::vector<size_t> pair_identical(const git_diff *diff) {
    const auto side = [&](size_t i, git_delta_t status, git_diff_file git_diff_delta::*file) {
        const git_diff_delta *delta = git_diff_get_delta(diff, i);
        const git_diff_file &end = delta->*file;
        return delta->status == status && is_file(end) ? Moved{&end.id, end.path} : Moved{};
    };
    return pair_identical(
        git_diff_num_deltas(diff),
        [&](size_t i) { return side(i, GIT_DELTA_DELETED, &git_diff_delta::old_file); },
        [&](size_t i) { return side(i, GIT_DELTA_ADDED, &git_diff_delta::new_file); });
}

DiffList *diff_tree_to_index(git_repository *repository, git_tree *tree, git_index *index,
                             PathSpec *spec, DiffCancel cancel) {
    return compare(spec, cancel, false, [&](git_diff **diff, const git_diff_options *how) {
        return git_diff_tree_to_index(diff, repository, tree, index, how);
    });
}

} // namespace zev
