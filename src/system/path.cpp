// Path: text work on paths, then questions about what they name and the known places. Text is of
// any length while it is worked on and is cut to the caller's buffer of Z_PATH_MAX when it leaves.
#include "zev/path.h"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/fold.hpp"
#include "system/os.hpp"
#include "system/path.hpp"
#include "zev/str.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <string_view>

using namespace zev;

namespace {

using View = std::u16string_view;
constexpr size_t kMost = Z_PATH_MAX - 1;

// Application data directory, empty until it is set during the start.
zwchar app_data[Z_PATH_MAX];

bool is_slash(zwchar unit) { return unit == u'/' || unit == u'\\'; }

bool has_drive(View path) {
    const zwchar letter = path.empty() ? u'\0' : static_cast<zwchar>(path[0] | 0x20);
    return path.size() > 1 && path[1] == u':' && letter >= u'a' && letter <= u'z';
}

bool is_absolute(View path) { return !path.empty() && (is_slash(path[0]) || has_drive(path)); }

View without_slashes(View path) {
    while (!path.empty() && is_slash(path.back())) path.remove_suffix(1);
    return path;
}

// The place behind the last separator.
size_t name_at(View path) { return path.find_last_of(u"/\\") + 1; }

// The place of the last dot of the name, or the path's end.
size_t ext_at(View path) {
    const size_t dot = path.rfind(u'.');
    return dot == path.npos || dot < name_at(path) ? path.size() : dot;
}

// The length of what `..` can't take back: "/", "C:", "C:/", "//server/share/".
size_t root_length(View path) {
    if (has_drive(path)) return path.size() > 2 && path[2] == u'/' ? 3 : 2;
    const size_t slashes = std::min(path.find_first_not_of(u'/'), path.size());
    if (slashes != 2 || slashes == path.size()) return slashes;
    size_t end = path.find(u'/', slashes);
    if (end != path.npos) end = path.find(u'/', end + 1);
    return end == path.npos ? path.size() : end + 1;
}

std::u16string root_of(View path) {
    const size_t length = root_length(path);
    std::u16string root(path.substr(0, length));
    if (has_drive(path) && length == 2) root += u'/';
    if (length && path.substr(0, length).find_first_not_of(u'/') == path.npos) root = u"/";
    return root;
}

// Adds what lies in `path` behind its root to `made`, each component with a slash.
void add_components(std::u16string &made, View path) {
    const size_t floor = made.size();
    for (size_t at = root_length(path); at < path.size();) {
        const size_t end = std::min(path.find(u'/', at), path.size());
        const View part = path.substr(at, end - at);
        if (part == u"..") {
            View kept = View(made).substr(floor);
            if (!kept.empty()) kept.remove_suffix(1);
            made.resize(floor + name_at(kept));
        } else if (!part.empty() && part != u".") {
            made.append(part).push_back(u'/');
        }
        at = end + 1;
    }
}

// A path while it is worked on, of any length. It is cut when it leaves, so that a cut text is
// always as long as its buffer, which is how `os` tells it from a whole one.
class Text {
  public:
    explicit Text(View path) : units_(path) { turn(u'/'); }

    void turn(zwchar slash) {
        for (zwchar &unit : units_)
            if (is_slash(unit)) unit = slash;
    }
    // A path of separators only keeps one: it is the root.
    void drop_slashes() {
        const size_t left = without_slashes(units_).size();
        units_.resize(left || units_.empty() ? left : 1);
    }
    // An absolute path appended to nothing stays absolute.
    void append(View more) {
        const size_t skip = std::min(more.find_first_not_of(u"/\\"), more.size());
        if (skip == more.size()) return;
        const bool slash = !units_.empty() || skip;
        units_.resize(without_slashes(units_).size());
        if (slash) units_ += u'/';
        units_ += more.substr(skip);
        turn(u'/');
    }
    void canonicalise() {
        const View path = units_;
        std::u16string made = root_of(path);
        const size_t floor = made.size();
        add_components(made, path);
        if (made.size() > floor && !path.ends_with(u'/')) made.pop_back();
        units_ = std::move(made);
    }

    View view() const { return units_; }
    const zwchar *c_str() const { return units_.c_str(); }
    bool copy(zwchar *dst) const {
        dst[units_.copy(dst, kMost)] = 0;
        return true;
    }

  private:
    std::u16string units_;
};

bool give(zwchar *dst, View path) { return Text(path).copy(dst); }

Text clean(View path) {
    Text text(path);
    text.canonicalise();
    text.drop_slashes();
    return text;
}

// Looks at the path without its trailing separators.
template <class Test> bool on_disk(const zwchar *path, Test test) {
    if (!path) return false;
    zwchar name[Z_PATH_MAX];
    View whole = path;
    View kept = without_slashes(whole);
    if (kept.empty() && !whole.empty()) kept = whole.substr(0, 1);
    name[kept.copy(name, kMost)] = 0;
    struct stat info;
    return os::stat(name, &info) && test(info);
}

// Links resolved in as much of an absolute path as exists.
std::u16string real(View path) {
    std::u16string found;
    for (View head = path; !head.empty(); head = without_slashes(head.substr(0, name_at(head))))
        if (os::real_path(std::u16string(head).c_str(), &found))
            return found.append(path.substr(head.size()));
    return std::u16string(path);
}

// Length of the longest common beginning of whole components; `directory` ends in a slash.
size_t common_length(View file, View directory) {
    const size_t least = std::min(file.size(), directory.size());
    const auto end = std::mismatch(file.begin(), file.begin() + static_cast<ptrdiff_t>(least),
                                   directory.begin());
    return name_at(file.substr(0, static_cast<size_t>(end.first - file.begin())));
}

// The way from `directory` to `file`, both clean, with slashes; empty when there is none.
std::u16string way(std::u16string file, std::u16string directory) {
    if (root_of(file) != root_of(directory)) return {};
    if (!file.ends_with(u'/')) file += u'/';
    if (!directory.ends_with(u'/') && !directory.empty()) directory += u'/';
    const size_t common = common_length(file, directory);
    const auto ups =
        std::count(directory.begin() + static_cast<ptrdiff_t>(common), directory.end(), u'/');
    std::u16string made = ups ? u"" : u"./";
    for (auto up = ups; up > 0; --up) made += u"../";
    made.append(file, common);
    made.pop_back();
    return made;
}

} // namespace

namespace zev {

bool path_join(zwchar *dst, const zwchar *directory, const zwchar *name) try {
    Text text(directory);
    text.append(name);
    if (text.view().size() < kMost) return text.copy(dst);
    errno = ENAMETOOLONG;
    return fail_errno(text.c_str());
} catch (...) {
    return fail_thrown();
}

const zwchar *path_remembered_temp() {
    static const auto directory = [] {
        std::array<zwchar, Z_PATH_MAX> path = {};
        zPathGetTemp(path.data());
        return path;
    }();
    return directory.data();
}

} // namespace zev

// ---- Text

bool zPathCopy(zwchar *dst, const zwchar *src) try {
    if (!dst || !src) return fail_args();
    return give(dst, src);
} catch (...) {
    return fail_thrown();
}

bool zPathReplaceBackslash(zwchar *dst, const zwchar *src) { return zPathCopy(dst, src); }

bool zPathReplaceSlash(zwchar *dst, const zwchar *src) try {
    if (!dst || !src) return fail_args();
    Text text(src);
    text.turn(u'\\');
    return text.copy(dst);
} catch (...) {
    return fail_thrown();
}

bool zPathAppend(zwchar *path, const zwchar *more) try {
    if (!path || !more) return fail_args();
    if (!more[std::min(View(more).find_first_not_of(u"/\\"), View(more).size())]) return true;
    Text text(path);
    text.append(more);
    return text.copy(path);
} catch (...) {
    return fail_thrown();
}

bool zPathBuild(zwchar *dst, const zwchar *first, ...) try {
    if (!dst || !first) return fail_args();
    Text text(first);
    va_list parts;
    va_start(parts, first);
    while (const zwchar *part = va_arg(parts, const zwchar *)) text.append(part);
    va_end(parts);
    return text.copy(dst);
} catch (...) {
    return fail_thrown();
}

bool zPathCanonicalized(zwchar *dst, const zwchar *src) try {
    if (!dst || !src) return fail_args();
    Text text(src);
    text.canonicalise();
    return text.copy(dst);
} catch (...) {
    return fail_thrown();
}

bool zPathMakeAbsolute(zwchar *dst, const zwchar *path, const zwchar *base) try {
    if (!dst || !path) return fail_args();
    Text text(base && *base ? base : path);
    if (base && *base) text.append(path);
    text.drop_slashes();
    text.canonicalise();
    return text.copy(dst);
} catch (...) {
    return fail_thrown();
}

// The store below resolves links in the work directory's path and a host doesn't, so a file that
// doesn't lie in the directory by its name may do so in truth.
bool zPathMakeRelative(zwchar *dst, const zwchar *file, const zwchar *directory) try {
    if (!dst || !file || !directory) return fail_args();
    const std::u16string from(clean(directory).view()), to(clean(file).view());
    std::u16string made = way(to, from);
    if (made.starts_with(u"../") || made == u"..") {
        if (is_absolute(from) && is_absolute(to))
            if (auto other = way(real(to), real(from)); !other.starts_with(u"..")) made = other;
    }
    if (made.empty()) return false;
    Text text(made);
    text.turn(u'\\');
    return text.copy(dst);
} catch (...) {
    return fail_thrown();
}

bool zPathRemoveDir(zwchar *dst, const zwchar *src) try {
    if (!dst || !src) return fail_args();
    return give(dst, src + name_at(src));
} catch (...) {
    return fail_thrown();
}

// Parents of what lies in the root are the root: an empty path would be the current directory.

bool zPathRemoveName(zwchar *dst, const zwchar *src) try {
    if (!dst || !src) return fail_args();
    const View path = src;
    const size_t name = name_at(path);
    if (name == 0 || name == path.size()) return give(dst, path);
    return give(dst, path.substr(0, std::max<size_t>(name - 1, 1)));
} catch (...) {
    return fail_thrown();
}

bool zPathRemoveLast(zwchar *dst, const zwchar *src) try {
    if (!dst || !src) return fail_args();
    const View path = src;
    const size_t name = name_at(path);
    if (name == 0 || path.size() == 1) return give(dst, path), false;
    return give(dst, path.substr(0, std::max<size_t>(name - 1, 1)));
} catch (...) {
    return fail_thrown();
}

bool zPathRemoveExt(zwchar *dst, const zwchar *src) try {
    if (!dst || !src) return fail_args();
    return give(dst, View(src).substr(0, ext_at(src)));
} catch (...) {
    return fail_thrown();
}

bool zPathRenameExt(zwchar *dst, const zwchar *src, const zwchar *ext) try {
    if (!dst || !src || !ext) return fail_args();
    return give(dst, std::u16string(View(src).substr(0, ext_at(src))) + ext);
} catch (...) {
    return fail_thrown();
}

bool zPathAppendExt(zwchar *dst, const zwchar *src, const zwchar *ext) try {
    if (!dst || !src || !ext) return fail_args();
    const std::u16string text = std::u16string(src) + ext;
    if (text.size() <= kMost) return give(dst, text);
    errno = ENAMETOOLONG;
    fail_errno(src);
    return fail_raised();
} catch (...) {
    return fail_thrown();
}

const zwchar *zPathFindName(const zwchar *path) {
    if (!path) return fail_args();
    return path + name_at(path);
}

const zwchar *zPathFindExt(const zwchar *path) {
    if (!path) return fail_args();
    const size_t at = ext_at(path);
    return path[at] ? path + at : nullptr;
}

bool zPathIsAbsolute(const zwchar *path) { return path && is_absolute(path); }
bool zPathIsRelative(const zwchar *path) { return !zPathIsAbsolute(path); }

bool zPathIsSame(const zwchar *a, const zwchar *b) try {
    if (!a || !b) return fail_args();
    return same_folded(clean(a).c_str(), clean(b).c_str());
} catch (...) {
    return fail_thrown();
}

// ---- On disk

bool zPathExists(const zwchar *path) {
    return on_disk(path, [](const struct stat &) { return true; });
}

bool zPathDirExists(const zwchar *path) {
    return on_disk(path, [](const struct stat &info) { return S_ISDIR(info.st_mode); });
}

bool zPathFileExists(const zwchar *path) {
    struct stat info;
    return path && os::stat(path, &info) && S_ISREG(info.st_mode);
}

bool zPathFileReadable(const zwchar *path) { return path && os::readable(path); }
bool zPathFileWritable(const zwchar *path) { return path && os::writable(path); }

bool zPathDirEmpty(const zwchar *path) {
    const int empty = os::dir_empty(path);
    return empty < 0 ? errno == ENOENT : empty;
}

// ---- Known places

bool zPathGetHome(zwchar *dst) {
    if (!dst) return fail_args();
    zwchar path[kShortPath];
    return os::expand(path, std::size(path), u"%APPDATA%") && *path &&
           zPathCanonicalized(dst, path);
}

bool zPathGetTemp(zwchar *dst) {
    if (!dst) return fail_args();
    return os::temp_dir(dst, Z_PATH_MAX) && zPathCopy(dst, dst);
}

bool zPathGetBin(zwchar *dst) {
    if (!dst) return fail_args();
    zwchar path[Z_PATH_MAX];
    return os::own_file(path, kMost) && zPathRemoveLast(path, path) &&
           zPathCanonicalized(dst, path);
}

bool zPathSetAppData(const zwchar *path, const zwchar *base) {
    if (!path) return fail_args();
    zwchar text[Z_PATH_MAX];
    if (!zPathExpandEnvStrings(text, path)) return false;
    if (zPathIsRelative(text) && !zPathMakeAbsolute(text, text, base)) return false;
    return zPathCopy(app_data, text);
}

bool zPathGetAppData(zwchar *dst) {
    if (!dst) return fail_args();
    if (*app_data) return zPathCopy(dst, app_data);
    if (!zPathGetBin(dst)) return zPathMakeAbsolute(dst, u"..", nullptr);
    return zPathRemoveLast(dst, dst), true;
}

bool zPathGetConf(zwchar *dst) { return zPathGetAppData(dst) && zPathAppend(dst, u"conf"); }
bool zPathGetLog(zwchar *dst) { return zPathGetAppData(dst) && zPathAppend(dst, u"logs"); }

bool zPathGetProcName(zwchar *dst) {
    if (!dst) return fail_args();
    zwchar path[Z_PATH_MAX];
    return os::program(path, Z_PATH_MAX) && zPathRemoveDir(dst, path);
}

bool zPathTmpnam(zwchar *dst, const zwchar *directory, const zwchar *prefix) try {
    if (!dst) return false;
    if (!directory) directory = path_remembered_temp();
    const int fd = os::temp_named(dst, directory, prefix);
    if (fd < 0) return fail_errno(directory);
    os::close_fd(fd);
    return zPathCopy(dst, dst);
} catch (...) {
    return fail_thrown();
}

bool zPathExpandEnvStrings(zwchar *dst, const zwchar *src) {
    if (!dst || !src) return fail_args();
    return os::expand(dst, Z_PATH_MAX, src) && zPathCopy(dst, dst);
}
