// logs/error.log    levels 0 to 4    <facility.level>time program[pid]: message @path(line)
// logs/message.log  levels 5 and 6   <facility.level>time program[pid]: message
// logs/access.log   level 8          the same
//
// UTF-8 with line feeds, no byte order mark, at most 1024 characters a line. A file above 32 MiB
// becomes <name>.old before the next line, in place of the former one. A line is one appended
// write, so that threads and processes mix whole lines only.
//
// Others may write into the directory: a file there is only written to when it is this user's or
// root's, and no link; a new one is as open to others as the directory, so that one that root made
// serves all whose programs log there. A line that finds no place there goes to <name> in zev/logs
// of the user's state directory, which nobody else writes.
#include "zev/log.h"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/format.hpp"
#include "common/guard.hpp"
#include "common/log_level.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/path.h"
#include "zev/str.h"
#include "zev/time.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include <sys/stat.h>
#include <uv.h>

using namespace zev;

namespace {

constexpr size_t kMost = 1024; // characters of a message, and of a line with its line feed
constexpr int64_t kRotated = 0x2000001;

struct Level {
    const zwchar *name;
    const zwchar *file; // null: console only
    bool error;         // to stderr, with the place at the line's end
};

constexpr Level kLevels[] = {
    {u"emerg", u"error.log", true},    {u"alert", u"error.log", true},
    {u"critical", u"error.log", true}, {u"error", u"error.log", true},
    {u"warning", u"error.log", true},  {u"notice", u"message.log", false},
    {u"info", u"message.log", false},  {u"debug", nullptr, false},
    {u"access", u"access.log", false},
};

constexpr const zwchar *kFacilities[] = {u"sys", u"std", u"vcs", u"net",
                                         u"zev", u"srv", u"usr", u"ukn"};

// A line while it grows; what doesn't fit is cut, the line feed always has its place.
class Line {
  public:
    void append(const zwchar *text) {
        for (; text && *text; ++text) put(*text);
    }
    // Foreign text: control characters would forge lines or drive the terminal.
    void append_escaped(const zwchar *text) {
        for (; *text; ++text) {
            if (const zwchar letter = escape_letter(*text)) {
                const zwchar pair[] = {u'\\', letter, 0};
                append(pair);
            } else if (is_control(*text)) {
                zwchar hex[8] = {};
                zSnprintfW(hex, std::size(hex), u"\\x%02x", static_cast<uint32_t>(*text));
                append(hex);
            } else {
                put(*text);
            }
        }
    }
    // UTF-8 with the line feed, into at least 3 * kMost bytes.
    size_t finish(char *bytes) {
        if (length_ && (units_[length_ - 1] & 0xFC00) == 0xD800) --length_; // half a character
        units_[length_++] = u'\n';
        return utf8_from_wide(units_, length_, bytes);
    }

  private:
    static zwchar escape_letter(zwchar unit) {
        switch (unit) {
        case u'\n':
            return u'n';
        case u'\r':
            return u'r';
        case u'\t':
            return u't';
        default:
            return 0;
        }
    }
    static bool is_control(zwchar unit) { return unit < 0x20 || (unit >= 0x7F && unit < 0xA0); }
    void put(zwchar unit) {
        if (length_ < kMost - 1) units_[length_++] = unit;
    }

    zwchar units_[kMost];
    size_t length_ = 0;
};

struct Place {
    const char *path;
    int32_t line;
};

void append_head(Line &line, const Level &level, const zwchar *facility) {
    zwchar time[32] = {}, program[Z_PATH_MAX] = {}, pid[24] = {};
    Time now;
    zTimeLocal(&now);
    zTimeFormatGlobal(time, std::size(time), u"%Y-%m-%d %H:%M:%S", now.seconds);
    zPathGetProcName(program);
    zSnprintfW(pid, std::size(pid), u"[%d]: ", static_cast<int32_t>(uv_os_getpid()));
    const zwchar *parts[] = {u"<", facility, u".", level.name, u">", time, u" "};
    for (const zwchar *part : parts) line.append(part);
    line.append_escaped(program);
    line.append(pid);
}

void append_place(Line &line, Place place) {
    zwchar text[kMost] = {};
    zSnprintfW(text, kMost - 1, u"%hs(%d)", place.path ? place.path : "", place.line);
    line.append(u" @");
    line.append_escaped(text);
}

void rotate(const zwchar *path) {
    struct stat now, old;
    if (!os::lstat(path, &now) || !S_ISREG(now.st_mode) || now.st_size < kRotated) return;
    zwchar archive[Z_PATH_MAX];
    zPathRenameExt(archive, path, u".old");
    if (os::lstat(archive, &old) && S_ISREG(old.st_mode)) os::unlink(archive);
    os::move(path, archive, false);
}

struct Bytes {
    const char *data;
    size_t size;
};

// False leaves in errno why.
bool append_at(const zwchar *directory, const zwchar *name, Bytes line) {
    zwchar path[Z_PATH_MAX];
    zPathBuild(path, directory, name, nullptr);
    rotate(path);
    const int fd = os::open_trusted(path);
    if (fd < 0) return false;
    const bool written = os::write_all(fd, line.data, line.size);
    const int kept = errno;
    os::close_fd(fd);
    errno = kept;
    return written;
}

// Root may have another user's environment: in what that calls the user's own neither a line nor
// a directory of root's has a place.
bool append_own(const zwchar *name, Bytes line) {
    zwchar above[Z_PATH_MAX], directory[Z_PATH_MAX];
    if (!os::state_dir(above, std::size(above))) return false;
    zPathAppend(above, u"zev");
    zPathBuild(directory, above, u"logs", nullptr);
    return os::is_trusted_way(directory) && os::make_dirs(above) &&
           (os::make_dir(directory, 0700) || errno == EEXIST) && append_at(directory, name, line);
}

std::atomic<bool> to_console = true;

// What is raised is why the shared file had no place; where the user's own has one, nothing is. Nor
// where the console hasn't shown the line: what the host failed at must not be lost to a log.
bool append_to_file(const zwchar *name, Bytes line) {
    zwchar directory[Z_PATH_MAX];
    zPathGetLog(directory);
    if (os::make_dirs(directory) && append_at(directory, name, line)) return true;
    const int kept = errno;
    if (append_own(name, line)) return true;
    errno = kept;
    return to_console && fail_errno(directory);
}

// Whoever reads the console may have stopped to: a line that has no room is left out there, or a
// server would stand still with all its connections. The file has it. What the console doesn't
// take, as on a full disk, stays in no buffer: it would come behind what the host prints next, or
// be taken for the host's own failure.
void print(FILE *console, Bytes line) {
    const os::SigpipeGuard guard; // and he may be gone
    const int fd = fileno(console);
    const auto has_room = [fd] { return os::socket_wait(fd, true, 0) != 0; };
    if (has_room() && fflush(console) == 0 && has_room()) os::write_all(fd, line.data, line.size);
}

// What the line's own road raises and logs must not come back here: without memory it would do so
// until the stack is full.
thread_local bool logging;

} // namespace

bool zLogReport(const char *path, int32_t line, int32_t level, int32_t facility,
                const zwchar *format, ...) {
    if (logging) return true;
    logging = true;
    Finally done([] { logging = false; });
    const int kept = errno;
    const Level &rank = kLevels[level >= 0 && level < std::ssize(kLevels) ? level : kDebug];
    const bool known = facility >= 0 && facility < kFacilityUnknown;

    zwchar message[kMost + 1] = {};
    va_list arguments;
    va_start(arguments, format);
    if (format) format_wide(message, kMost, format, arguments);
    va_end(arguments);

    Line text;
    append_head(text, rank, kFacilities[known ? facility : kFacilityUnknown]);
    text.append_escaped(message[0] ? message : u"Unknown Error");
    if (rank.error) append_place(text, {path, line});
    char bytes[3 * kMost];
    const Bytes finished = {bytes, text.finish(bytes)};

    if (to_console) print(rank.error ? stderr : stdout, finished);
    const bool written = !rank.file || append_to_file(rank.file, finished);
    if (written || !to_console) errno = kept;
    return written;
}

bool zLogConsole(bool on) { return to_console.exchange(on); }
