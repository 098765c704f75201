// Two trees walked in step, level by level. The levels are bounded here, since trees come from
// clients, and libgit2 walks however deep they nest on the stack.
#include "network/rest/repos/tree_change.hpp"

#include "common/limits.hpp"
#include "common/utf.hpp"
#include "objects/store/git.hpp"

namespace zev::rest {

namespace {

using Entry = const git_tree_entry;

struct Steps {
    git_repository *repository;
    const ChangeTest &allowed;
    std::string directory{}; // with a slash at its end
    uint32_t level = 0;

    bool compare(git_tree *before, git_tree *after);
    bool differ(Entry *before, Entry *after);
    bool enter(Entry *before, Entry *after);
    bool open(git::Tree &tree, Entry *entry) const;
};

bool is_tree(Entry *entry) { return entry && git_tree_entry_type(entry) == GIT_OBJECT_TREE; }

bool is_same(Entry *before, Entry *after) {
    return git_oid_equal(git_tree_entry_id(before), git_tree_entry_id(after)) &&
           git_tree_entry_filemode(before) == git_tree_entry_filemode(after);
}

// Entries stand in one order in every tree, in which a directory and a file of one name differ.
bool Steps::compare(git_tree *before, git_tree *after) {
    size_t b = 0, a = 0;
    for (;;) {
        Entry *old = before ? git_tree_entry_byindex(before, b) : nullptr;
        Entry *made = after ? git_tree_entry_byindex(after, a) : nullptr;
        if (!old && !made) return true;
        const int order = !old ? 1 : !made ? -1 : git_tree_entry_cmp(old, made);
        b += order <= 0, a += order >= 0;
        if (order < 0 && !differ(old, nullptr)) return false;
        if (order > 0 && !differ(nullptr, made)) return false;
        if (order == 0 && !is_same(old, made) && !differ(old, made)) return false;
    }
}

// At least one is there; both are of one name.
bool Steps::differ(Entry *before, Entry *after) {
    if (is_tree(before) || is_tree(after)) return enter(before, after);
    return allowed(to_wide(directory + git_tree_entry_name(before ? before : after)),
                   after ? git_tree_entry_id(after) : nullptr);
}

bool Steps::enter(Entry *before, Entry *after) {
    git::Tree old, made;
    if (level == limits::path_depth || !open(old, before) || !open(made, after)) return false;
    const size_t length = directory.size();
    directory.append(git_tree_entry_name(before ? before : after)).append("/");
    ++level;
    const bool done = compare(old.get(), made.get());
    --level;
    directory.resize(length);
    return done;
}

bool Steps::open(git::Tree &tree, Entry *entry) const {
    if (!is_tree(entry)) return true;
    const int code = git_tree_lookup(out(tree), repository, git_tree_entry_id(entry));
    return code < 0 ? fail_git(code) : true;
}

} // namespace

bool is_each_change(git_tree *before, git_tree *after, const ChangeTest &allowed) {
    return Steps{git_tree_owner(before ? before : after), allowed}.compare(before, after);
}

} // namespace zev::rest
