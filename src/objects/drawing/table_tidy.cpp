// What LevelDB leaves behind, and a table doesn't need: of a table with few rows it is the most.
//
//   LOCK             of the process that has the database open; made anew by each opening
//   LOG, LOG.old     notes on this opening and the one before
//   <number>.log     without a byte, beside files of rows: opening moved what was in the former log
//                    into one of those, and nothing was stored since
//
// A table of a first version is left with CURRENT, MANIFEST and a log of its rows, from the second
// opening on with a file of rows in place of the log. An empty log that is alone stays: LevelDB
// takes rows without a log for a table, and so would whoever looks for a log that was lost.
//
// Our own lock keeps others of ours away meanwhile. Other programs know LevelDB's only: it is held
// here, on the bytes that it covers, until its file is gone, and where one has it nothing is
// touched.
#include "objects/drawing/table.hpp"

#include "system/os.hpp"

#include <algorithm>
#include <cerrno>
#include <vector>

namespace zev {

namespace {

bool is_empty(const std::u16string &path) {
    struct stat status;
    return os::lstat(path.c_str(), &status) && S_ISREG(status.st_mode) && !status.st_size;
}

bool is_rows(std::u16string_view name) {
    return name.ends_with(u".ldb") || name.ends_with(u".sst");
}

} // namespace

// Nothing is raised: whoever closes a table may still have a failure to tell.
void tidy_table(const zwchar *directory) try {
    const int kept = errno;
    const Finally back([kept] { errno = kept; });
    const std::u16string place = std::u16string(directory) + u'/', lock = place + u"LOCK";
    const os::Mode mode{.read = true, .write = true, .create = true};
    const int held = os::share_open(lock.c_str(), mode, Z_SHARE_NONE);
    if (held < 0) return;
    const Finally freed([held] { os::close_fd(held); });
    std::vector<os::Name> names;
    if (!os::read_dir(directory, &names)) return;
    const bool has_rows =
        std::ranges::any_of(names, [](const os::Name &name) { return is_rows(name.text); });
    for (const os::Name &name : names) {
        const std::u16string path = place + name.text;
        const bool is_note = name.text == u"LOG" || name.text == u"LOG.old";
        const bool is_log = has_rows && name.text.ends_with(u".log") && is_empty(path);
        if (is_note || is_log) os::unlink(path.c_str());
    }
    os::share_remove(held, lock.c_str());
} catch (...) { // out of memory: the next closing does it
}

} // namespace zev
