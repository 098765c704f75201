// What is walked through here is looked at once: a directory of many files is named once for each.
#include "keep_files.hpp"

#include <set>

namespace host {

namespace fs = std::filesystem;

void keep_directories(const WorkingCopy &copy, Index *index, const Paths &paths) {
    std::set<std::string> parents; // of files; their directories are looked at once
    for (const std::string &path : paths) {
        if (path.empty()) {
            for (const auto &entry : fs::directory_iterator(copy.root()))
                if (std::string name = entry.path().filename();
                    entry.is_directory() && !entry.is_symlink() && name != ".git" && is_text(name))
                    check(zIndexFixupGitkeep(index, wide(name).c_str()));
        } else if (fs::is_directory(copy.absolute(path)) ||
                   parents.insert(fs::path(path).parent_path()).second) {
            check(zIndexFixupGitkeep(index, wide(path).c_str()));
        }
    }
}

} // namespace host
