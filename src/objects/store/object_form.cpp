// libgit2 reads trees, commits and tags generously: what it lets pass is held against git's own
// rules here, and names of files against those of an index.
//   tree     entries of mode in octal digits, blank, name, zero byte, 20 bytes of id; ordered by
//            name, that of a directory as if a slash stood behind it
#include "objects/store/object_form.hpp"

#include "common/pathname.hpp"

#include <algorithm>
#include <cstring>
#include <string>

namespace zev {

namespace {

constexpr std::string_view kModes[] = {"100644", "40000", "100755", "120000", "160000", "100664"};

// Takes the entry at the front of a tree; false if there is none.
bool take_entry(std::string_view &tree, std::string_view &mode, std::string_view &name) {
    const size_t zero = tree.find('\0'), blank = tree.substr(0, zero).find(' ');
    if (zero == tree.npos || blank == tree.npos || tree.size() - zero <= GIT_OID_RAWSZ)
        return false;
    static constexpr char kNone[GIT_OID_RAWSZ] = {};
    if (!memcmp(tree.data() + zero + 1, kNone, sizeof kNone)) return false;
    mode = tree.substr(0, blank);
    name = tree.substr(blank + 1, zero - blank - 1);
    tree.remove_prefix(zero + 1 + GIT_OID_RAWSZ);
    return true;
}

bool is_name(std::string_view name) { return name.find('/') == name.npos && path_can_enter(name); }

// Ordered as in a tree. A file and a directory of one name lie apart there, with others that begin
// like them between: such a pair shows when the name with its slash is looked for.
bool has_tree_form(std::string_view tree) {
    std::string last, key;
    std::string_view mode, name;
    std::vector<std::string> files; // that a directory of the same name may still follow
    while (!tree.empty()) {
        if (!take_entry(tree, mode, name) || !is_name(name)) return false;
        if (std::ranges::find(kModes, mode) == std::end(kModes)) return false;
        const bool is_directory = mode == "40000";
        key.assign(name);
        if (is_directory) key += '/';
        if (!last.empty() && key <= last) return false;
        while (!files.empty() && !name.starts_with(files.back())) files.pop_back();
        if (!files.empty() && std::ranges::find(files, name) != files.end()) return false;
        if (!is_directory) files.emplace_back(name);
        last.swap(key);
    }
    return true;
}

bool has_git_form(git_object_t type, std::string_view bytes) {
    int valid = 0;
    const int code = git_object_rawcontent_is_valid(&valid, bytes.data(), bytes.size(), type);
    return code >= 0 && valid;
}

} // namespace

bool has_object_form(git_object_t type, std::string_view bytes) {
    switch (type) {
    case GIT_OBJECT_BLOB:
        return true;
    case GIT_OBJECT_TREE:
        return has_tree_form(bytes);
    case GIT_OBJECT_COMMIT:
    case GIT_OBJECT_TAG:
        return bytes.find('\0') == bytes.npos && has_git_form(type, bytes);
    default:
        return false;
    }
}

std::string object_head(git_object_t type, uint64_t size) {
    return std::string(git_object_type2string(type)) + ' ' + std::to_string(size) + '\0';
}

} // namespace zev
