// Trees sort a directory apart from a file of its name, so the two never meet as one pair.
#include "objects/store/tree_pairs.hpp"

#include "common/failure.hpp"
#include "zev/path.h"

#include <cerrno>

namespace zev {

namespace {

// No path of 511 units, the longest that any operation takes, has more bytes; a tree that was made
// to be deeper would cost us the stack.
constexpr size_t kLongestDirectory = 3 * Z_PATH_MAX;

bool is_tree(TreePairs::Entry entry) {
    return entry && git_tree_entry_type(entry) == GIT_OBJECT_TREE;
}

} // namespace

bool is_same_entry(TreePairs::Entry a, TreePairs::Entry b) {
    return a && b && git_oid_equal(git_tree_entry_id(a), git_tree_entry_id(b)) &&
           git_tree_entry_filemode(a) == git_tree_entry_filemode(b);
}

bool TreePairs::walk(git_tree *before, git_tree *after, const std::string &directory) {
    const size_t before_count = before ? git_tree_entrycount(before) : 0;
    const size_t after_count = after ? git_tree_entrycount(after) : 0;
    for (size_t i = 0, j = 0; i < before_count || j < after_count;) {
        Entry a = i < before_count ? git_tree_entry_byindex(before, i) : nullptr;
        Entry b = j < after_count ? git_tree_entry_byindex(after, j) : nullptr;
        const int order = !a ? 1 : !b ? -1 : git_tree_entry_cmp(a, b);
        if (order > 0) a = nullptr;
        if (order < 0) b = nullptr;
        i += a != nullptr;
        j += b != nullptr;
        if (!meet(a, b, directory)) return false;
    }
    return true;
}

bool TreePairs::meet(Entry before, Entry after, const std::string &directory) {
    if (is_same_entry(before, after) && !all_) return true;
    std::string path = directory + git_tree_entry_name(before ? before : after);
    if (!is_tree(before) && !is_tree(after)) return take_(std::move(path), before, after), true;
    if (path.size() > kLongestDirectory) return fail_os(ENAMETOOLONG);
    git::Tree old_tree, new_tree;
    is_after_cut_ = !open(new_tree, after);
    return !is_after_cut_ && open(old_tree, before) &&
           walk(old_tree.get(), new_tree.get(), path + "/");
}

bool TreePairs::open(git::Tree &tree, Entry entry) {
    const int code = entry ? git_tree_lookup(out(tree), repository_, git_tree_entry_id(entry)) : 0;
    return code < 0 ? fail_git(code) : true;
}

} // namespace zev
