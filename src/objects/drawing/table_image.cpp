// A table for reading where nobody may or will write: <temporary directory>/zev-<40 hex>/ with a
// symbolic link to each file of the table but LevelDB's lock and its notes. LevelDB reads through
// the links; what it replaces or removes are the links.
#include "objects/drawing/table.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/oid.h"

#include <cerrno>
#include <vector>

namespace zev {

namespace {

bool is_linked(const os::Name &name) {
    const std::u16string_view text = name.text;
    return !name.directory && !text.starts_with(u"LOCK") && !text.starts_with(u"LOG");
}

} // namespace

bool TableImage::make(const zwchar *table) {
    zwchar place[Z_PATH_MAX], digits[41];
    std::u16string real;
    std::vector<os::Name> names;
    Oid id;
    if (!os::real_path(table, &real) || !os::read_dir(real.c_str(), &names))
        return fail_errno(table);
    if (!os::temp_dir(place, Z_PATH_MAX)) return fail_errno(table);
    if (!zOidRand(&id) || !zOidFormat(digits, &id)) return false;
    const std::u16string image = std::u16string(place) + u"zev-" + digits;
    if (!os::make_dir(image.c_str(), 0700)) return fail_errno(image.c_str());
    path_ = image;
    for (const os::Name &name : names) {
        const std::u16string link = image + u"/" + name.text;
        if (is_linked(name) && !os::make_link(link.c_str(), to_utf8(real + u"/" + name.text)))
            return fail_errno(link.c_str());
    }
    return true;
}

TableImage::~TableImage() {
    if (!path_.empty()) os::remove_tree(path_.c_str(), false);
}

TableGate::~TableGate() {
    if (directory_ >= 0) os::close_fd(directory_);
}

bool TableGate::take(const zwchar *table, bool shared) {
    constexpr int kRounds = 300;
    constexpr uint32_t kPause = 10; // milliseconds
    for (int round = 0; round < kRounds; ++round, os::sleep(kPause)) {
        directory_ = os::lock_dir(table, shared);
        if (directory_ >= 0 || errno != EWOULDBLOCK) return true;
    }
    return raise_locked(table);
}

} // namespace zev
