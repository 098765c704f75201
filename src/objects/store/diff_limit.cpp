// Exact names narrow libgit2's walk, everything else is asked for each difference found: its walk
// tells upper case from lower, so a name counts as exact only when something is spelled like it.
#include "objects/store/diff_limit.hpp"

#include "common/utf.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cstring>

namespace zev {

bool is_sparse(git_index *index, const char *path) {
    const git_index_entry *entry = git_index_get_bypath(index, path, 0);
    return entry && entry->flags_extended & GIT_INDEX_ENTRY_SKIP_WORKTREE;
}

DiffLimit::DiffLimit(PathSpec *spec, git_diff_options &options)
    : options_(options), matcher_(spec ? &spec_matcher(spec) : nullptr) {
    if (matcher_ && matcher_->all()) matcher_ = nullptr;
    if (matcher_) ask();
}

void DiffLimit::ask() {
    options_.notify_cb = selects;
    options_.payload = this;
}

// Asked by libgit2 for each difference; above 0 leaves it out.
int DiffLimit::selects(const git_diff *, const git_diff_delta *delta, const char *, void *self) {
    auto *limit = static_cast<DiffLimit *>(self);
    try {
        if (limit->matcher_ && !limit->matcher_->matches(delta->new_file.path)) return 1;
        const bool gone = delta->status == GIT_DELTA_DELETED;
        return gone && limit->index_ && is_sparse(limit->index_, delta->old_file.path) ? 1 : 0;
    } catch (...) {
        limit->thrown_ = true;
        return -1;
    }
}

namespace {

// Only then may the walk be left to libgit2, which tells upper case from lower: under another
// spelling the file must be looked for. Whether a name is spelled like a file, or like a directory,
// that index, disk or head have.
bool is_spelled(const Matcher::Name &name, const Repository *repository, git_index *entries,
                git_tree *head) {
    struct stat status;
    const bool on_disk = os::lstat(full_path(repository, name.path).c_str(), &status);
    const bool is_dir = on_disk && S_ISDIR(status.st_mode);
    if (name.itself && is_dir) return false;
    if (on_disk && is_dir == name.below) return true;
    if (name.itself && !git_index_find(nullptr, entries, name.path.c_str())) return true;
    if (!name.itself && !git_index_find_prefix(nullptr, entries, (name.path + "/").c_str()))
        return true;
    git::Entry entry;
    if (!head || git_tree_entry_bypath(out(entry), head, name.path.c_str())) return false;
    return (git_tree_entry_type(entry.get()) == GIT_OBJECT_TREE) != name.itself;
}

bool is_ascii(const std::string &text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

} // namespace

void DiffLimit::narrow(const Repository *repository, git_index *index, git_tree *head) {
    index_ = index;
    ask();
    const auto *names = matcher_ ? matcher_->names() : nullptr;
    if (!names) return;
    for (const Matcher::Name &name : *names)
        if (name.path.empty() || !is_spelled(name, repository, index, head)) return;
    use_names();
}

void DiffLimit::narrow_caseless() {
    const auto *names = matcher_ ? matcher_->names() : nullptr;
    if (!names) return;
    for (const Matcher::Name &name : *names)
        if (name.path.empty() || !is_ascii(name.path)) return;
    use_names();
}

// A slash at the end names a directory with all below it. The matcher is still asked: a name may be
// that of a file on one side and of a directory on the other, of which libgit2 takes all below.
void DiffLimit::use_names() {
    for (const Matcher::Name &name : *matcher_->names()) {
        if (name.itself) names_.push_back(name.path);
        if (name.below) names_.push_back(name.path + "/");
    }
    for (std::string &name : names_) pointers_.push_back(name.data());
    options_.flags |= GIT_DIFF_DISABLE_PATHSPEC_MATCH;
    options_.pathspec = {pointers_.data(), pointers_.size()};
}

// Entries at stage 0 in the order of their paths, each once.
std::vector<const git_index_entry *> DiffLimit::entries(git_index *index) const {
    std::vector<const git_index_entry *> found;
    const auto keep = [&](const git_index_entry *entry) {
        if (git_index_entry_stage(entry) == 0) found.push_back(entry);
    };
    if (!narrowed()) {
        const size_t count = git_index_entrycount(index);
        found.reserve(matcher_ ? 0 : count);
        for (size_t i = 0; i < count; ++i) {
            const git_index_entry *entry = git_index_get_byindex(index, i);
            if (!matcher_ || matcher_->matches(entry->path)) keep(entry);
        }
        return found;
    }
    for (const std::string &name : names_) {
        size_t at = 0;
        if (name.back() != '/') {
            if (const auto *entry = git_index_get_bypath(index, name.c_str(), 0)) keep(entry);
        } else if (!git_index_find_prefix(&at, index, name.c_str())) {
            for (const git_index_entry *entry; (entry = git_index_get_byindex(index, at)); ++at) {
                if (!std::string_view(entry->path).starts_with(name)) break;
                keep(entry);
            }
        }
    }
    std::ranges::sort(found, [](auto *a, auto *b) { return strcmp(a->path, b->path) < 0; });
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

} // namespace zev
