// The desktop's trash, in the freedesktop.org format that file managers and `gio trash` share.
//
//   <trash>/files/NAME            what was deleted
//   <trash>/info/NAME.trashinfo   "[Trash Info]", "Path=" percent-encoded and relative to the top
//                                 directory (absolute in the home trash), "DeletionDate=" local
//
// NAME is the old name, with a number before its extension when it is taken, and shortened so that
// the name of its info file is none too long. The info file comes first and claims the name. The
// trash on the device of what goes is taken, so that nothing is copied: that of the user's home,
// <mount>/.Trash/<uid> (a real directory with the sticky bit), <mount>/.Trash-<uid>; and if none
// can be had a copy goes into the home trash, which may be reached by links. Another user's home,
// which HOME may still name after a change to root, has none for us. Only where there can be none
// at all is anything deleted: a trash that is there and can't be used, or may be there, is no such
// reason, nor is a full disk or one that fails.
#include "system/clock.hpp"
#include "system/posix/native.hpp"

#include <cctype>
#include <cstring>
#include <ctime>

#include <pwd.h>

namespace zev::os {

namespace {

bool device_of(const std::string &path, dev_t *device) {
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0) return false;
    *device = info.st_dev;
    return true;
}

std::string top_directory(std::string path, dev_t device) {
    dev_t above;
    while (path != "/" && device_of(parent(path), &above) && above == device) path = parent(path);
    return path;
}

bool own_directory(const std::string &path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid();
}

std::string percent_encoded(std::string_view path) {
    std::string text;
    for (char byte : path) {
        const auto value = static_cast<unsigned char>(byte);
        if (isalnum(value) && value < 128) {
            text += byte;
        } else if (strchr("/-_.~", byte)) {
            text += byte;
        } else {
            text += '%';
            text += "0123456789ABCDEF"[value >> 4];
            text += "0123456789ABCDEF"[value & 15];
        }
    }
    return text;
}

std::string info_text(const std::string &path) {
    const time_t now = static_cast<time_t>(calls.now() / kSecond);
    tm parts = {};
    localtime_r(&now, &parts);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    return "[Trash Info]\nPath=" + percent_encoded(path) + "\nDeletionDate=" + date + "\n";
}

// At most `size` bytes of a name, whole characters of them.
std::string_view beginning(std::string_view name, size_t size) {
    if (name.size() <= size) return name;
    while (size && (static_cast<unsigned char>(name[size]) & 0xC0) == 0x80) --size;
    return name.substr(0, size);
}

constexpr std::string_view kInfo = ".trashinfo";
constexpr size_t kLongest = NAME_MAX - kInfo.size();
constexpr size_t kLongestExtension = 40; // what is longer is none

std::string numbered(std::string_view name, int number) {
    const size_t dot = name.rfind('.');
    const bool extended = dot != name.npos && dot != 0 && name.size() - dot <= kLongestExtension;
    const size_t end = extended ? dot : name.size();
    std::string tail = number == 1 ? "" : '.' + std::to_string(number);
    tail += name.substr(end);
    return std::string(beginning(name.substr(0, end), kLongest - tail.size())) + tail;
}

enum class Put { done, taken, other_device, failed, unusable, none };

bool is_missing(const std::string &path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

// What errno of a directory that can't be made says of the trash in it.
Put not_made(const std::string &trash) {
    const int kept = errno;
    const bool forbidden = kept == EACCES || kept == EPERM || kept == EROFS || kept == ENOTDIR;
    if (forbidden && !is_missing(trash)) return Put::unusable;
    return failed(kept), forbidden ? Put::none : Put::failed;
}

// Makes what is missing of a trash. Somebody else's, or a link, is not to be used.
Put prepare(const std::string &trash) {
    if (::mkdir(trash.c_str(), 0700) != 0 && errno != EEXIST) return not_made(trash);
    for (const char *part : {"", "/files", "/info"}) {
        const std::string path = trash + part;
        const bool made = !*part || ::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
        if (!made) return not_made(path) == Put::failed ? Put::failed : Put::unusable;
        if (!own_directory(path)) return Put::unusable;
    }
    return Put::done;
}

Put put_as(const std::string &path, const std::string &trash, const std::string &name,
           const std::string &info, bool copied) {
    const std::string info_path = trash + "/info/" + name + std::string(kInfo);
    const std::string file_path = trash + "/files/" + name;
    const Fd fd(::open(info_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd) return errno == EEXIST ? Put::taken : Put::failed;
    bool done = write_all(fd.get(), info.data(), info.size()) && calls.fsync(fd.get()) == 0;
    done = done && rename_new(path.c_str(), file_path.c_str());
    const bool across = !done && errno == EXDEV && copied;
    dev_t any;
    if (across && device_of(file_path, &any)) {
        errno = EEXIST; // somebody's, although its info file is gone
    } else if (across) {
        done = copy_tree(path, file_path, true) && calls.syncfs(fd.get()) == 0;
        if (done) return remove_path(path) ? Put::done : Put::failed;
        const int kept = errno;
        remove_path(file_path);
        errno = kept;
    }
    if (done) return Put::done;
    const int kept = errno;
    ::unlink(info_path.c_str());
    errno = kept;
    return kept == EEXIST ? Put::taken : kept == EXDEV ? Put::other_device : Put::failed;
}

// Moves into one trash; `top` is taken off the path that the info file tells.
Put put_into(const std::string &path, const std::string &trash, const std::string &top,
             bool copied = false) {
    if (const Put ready = prepare(trash); ready != Put::done) return ready;
    const std::string told = top.empty() ? path : path.substr(top == "/" ? 1 : top.size() + 1);
    const std::string info = info_text(told), name = base_name(path);
    Put put = Put::taken;
    for (int number = 1; put == Put::taken && number < 10'000; ++number)
        put = put_as(path, trash, numbered(name, number), info, copied);
    return put;
}

// Whether a place is another user's, or will lie in one of his: neither ours nor the system's.
bool is_strange(std::string path) {
    struct stat info;
    while (::stat(path.c_str(), &info) != 0) {
        if (path == "/") return false;
        path = parent(path);
    }
    return info.st_uid != geteuid() && info.st_uid != 0;
}

// By the environment, which after a change of user may still name the other one's home; then by
// the list of users.
std::string data_directory() {
    std::string data = user_directory("XDG_DATA_HOME", "/.local/share");
    if (data.empty() || !is_strange(data)) return data;
    passwd entry, *found = nullptr;
    char text[4096];
    getpwuid_r(geteuid(), &entry, text, sizeof text, &found);
    data = found ? found->pw_dir + std::string("/.local/share") : "";
    return data.starts_with('/') && !is_strange(data) ? data : "";
}

// Where the user's own trash is or would be, with links resolved.
Put find_home(std::string *home) {
    const std::string data = data_directory();
    if (data.empty()) return Put::none;
    const std::string trash = data + "/Trash";
    if (!make_dirs(data)) return not_made(trash);
    if (is_missing(trash)) {
        const std::string above = real(data);
        if (!above.empty()) *home = above + "/Trash";
    } else {
        *home = real(trash);
    }
    return home->empty() ? Put::unusable : Put::done;
}

bool is_on(dev_t device, const std::string &trash) {
    dev_t own;
    return device_of(is_missing(trash) ? parent(trash) : trash, &own) && own == device;
}

// Into one of those at the top of the device; what can't be used there leaves the home's.
Put into_top(const std::string &path, const std::string &top) {
    const std::string user = std::to_string(getuid()), base = (top == "/" ? "" : top) + "/.Trash";
    struct stat shared;
    Put put = Put::none;
    if (::lstat(base.c_str(), &shared) == 0 && S_ISDIR(shared.st_mode) &&
        (shared.st_mode & S_ISVTX))
        put = put_into(path, base + '/' + user, top);
    if (put == Put::done || put == Put::failed) return put;
    const Put second = put_into(path, base + '-' + user, top);
    return second == Put::none ? put : second;
}

Put into_any_trash(const std::string &path) {
    dev_t device;
    std::string home;
    if (!device_of(path, &device)) return Put::failed;
    const Put have = find_home(&home);
    if (have != Put::done && have != Put::none) return have;
    if (have == Put::done && is_on(device, home))
        if (const Put put = put_into(path, home, ""); put != Put::other_device && put != Put::none)
            return put;
    const Put put = into_top(path, top_directory(path, device));
    if (put == Put::done || put == Put::failed) return put;
    const Put copied = have == Put::done ? put_into(path, home, "", true) : Put::none;
    return copied == Put::none ? put : copied;
}

// Absolute, links resolved above the last component only: a link goes itself.
std::string absolute(std::string_view path) {
    const std::string above = real(parent(path));
    return above.empty() ? above : (above == "/" ? "" : above) + '/' + base_name(path);
}

} // namespace

bool trash(const char16_t *wide) {
    Native name(wide);
    if (!name) return failed(errno == ENOENT ? ENOENT : EIO);
    name.drop_slashes();
    const bool done = guarded([&] {
        struct stat info;
        if (::lstat(name, &info) != 0) return normalised();
        // Not by their own names: a directory that the caller is in, or the root.
        const std::string last = base_name(name.view());
        if (last.empty() || is_dot(last.c_str())) return failed(EACCES);
        const std::string path = absolute(name.view());
        if (path.empty()) return normalised();
        const Put put = into_any_trash(path);
        if (put == Put::unusable) return failed(EACCES);
        return put == Put::none ? remove_path(path) : put == Put::done;
    });
    if (done) return true;
    const bool refused = errno == EACCES || errno == EPERM || errno == EROFS;
    return failed(errno == ENOENT ? ENOENT : refused ? EACCES : EIO);
}

} // namespace zev::os
