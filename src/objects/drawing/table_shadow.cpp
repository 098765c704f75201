// LevelDB takes files away that its manifest doesn't name, and would do so with links, never with
// what they lead to.
#include "objects/drawing/table_shadow.hpp"

#include "common/utf.hpp"
#include "system/os.hpp"

namespace zev {

namespace {

// A new directory of this process alone.
bool make_directory(std::u16string &path) {
    zwchar directory[Z_PATH_MAX], name[Z_PATH_MAX];
    if (!os::temp_dir(directory, Z_PATH_MAX)) return false;
    const int fd = os::temp_named(name, directory, u"zev");
    if (fd < 0) return false;
    os::close_fd(fd);
    if (!os::unlink(name) || !os::make_dir(name, 0700)) return false;
    path = name;
    return true;
}

bool holds_rows(std::u16string_view name) {
    return name.ends_with(u".ldb") || name.ends_with(u".sst");
}

} // namespace

TableShadow::~TableShadow() {
    if (is_made()) os::remove_tree(path_.c_str(), false);
}

bool TableShadow::make(const std::u16string &table) {
    std::vector<os::Name> names;
    std::u16string real;
    if (!os::real_path(table.c_str(), &real) || !os::read_dir(real.c_str(), &names)) return false;
    if (!make_directory(path_)) return false;
    for (const os::Name &name : names) {
        if (name.directory || name.text.find(u"LOCK") == 0) continue;
        const std::u16string from = real + u'/' + name.text, to = path_ + u'/' + name.text;
        const bool done = holds_rows(name.text) ? os::make_link(to.c_str(), to_utf8(from))
                                                : os::copy(from.c_str(), to.c_str());
        if (!done) return false;
    }
    return true;
}

} // namespace zev
