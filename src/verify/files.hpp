// Files and directories as the parts of a verification look at them. Paths of directories end with
// a slash. All may throw.
#pragma once

#include "system/os.hpp"

#include <string>
#include <string_view>

namespace zev::verify {

// The Git directory, and the one that worktrees share.
std::u16string own_directory(git_repository *repository);
std::u16string shared_directory(git_repository *repository);

bool exists(const std::u16string &path);
std::string read_text(const std::u16string &path); // empty where it can't be read

// Whether a file's last 20 bytes are the SHA-1 of those before. Packs, the index and other files of
// Git's end so.
bool has_own_sum(const std::u16string &path);

// Calls visit(path, name) for each file below a directory, or for those in it alone, with the name
// relative to where the walk began. False when a directory can't be read: errno says why.
template <class F>
bool visit_files(const std::u16string &directory, bool below, F &&visit,
                 const std::u16string &prefix = {}) {
    std::vector<os::Name> names;
    bool complete = os::read_dir(directory.c_str(), &names);
    for (const os::Name &name : names) {
        if (name.text == u"." || name.text == u"..") continue;
        const std::u16string path = directory + name.text;
        if (!name.directory)
            visit(path, prefix + name.text);
        else if (below)
            complete &= visit_files(path + u'/', true, visit, prefix + name.text + u'/');
    }
    return complete;
}

} // namespace zev::verify
