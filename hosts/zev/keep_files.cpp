// What is walked through here is looked at once: a directory of many files is named once for each.
#include "keep_files.hpp"

#include <set>

namespace host {

namespace fs = std::filesystem;

// A directory that can't be written has files, or can't be told from none: they enter without. A
// name that is only walked upon, and can't enter, is told with the files below it.
static void keep(Index *index, const std::string &path, bool named) {
    constexpr int kNoAccess = 13, kReadOnly = 30;
    if (zIndexFixupGitkeep(index, wide(path).c_str())) return;
    const int kind = zErrorClass(), code = zErrorCode();
    if (kind == kSystem && (code == kNoAccess || code == kReadOnly)) return;
    if (named || kind != kInvalid) check(false);
}

void keep_directories(const WorkingCopy &copy, Index *index, const Paths &paths) {
    std::set<std::string> parents; // of files; their directories are looked at once
    for (const std::string &path : paths) {
        if (path.empty()) {
            for (const auto &entry : fs::directory_iterator(copy.root()))
                if (std::string name = entry.path().filename();
                    entry.is_directory() && !entry.is_symlink() && name != ".git" && is_text(name))
                    keep(index, name, false);
        } else if (fs::is_directory(copy.absolute(path)) ||
                   parents.insert(fs::path(path).parent_path()).second) {
            keep(index, path, true);
        }
    }
}

} // namespace host
