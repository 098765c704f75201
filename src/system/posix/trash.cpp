// The desktop's trash, in the freedesktop.org format that file managers and `gio trash` share.
//
//   <trash>/files/NAME            what was deleted
//   <trash>/info/NAME.trashinfo   "[Trash Info]", "Path=" percent-encoded and relative to the top
//                                 directory (absolute in the home trash), "DeletionDate=" local
//
// NAME is the old name, with a number before its extension when it is taken. The info file comes
// first and claims the name. The trash on the device of what goes is taken, so that nothing is
// copied: that of the user's home, <mount>/.Trash/<uid> (a real directory with the sticky bit),
// <mount>/.Trash-<uid>; and if none can be had a copy goes into the home trash. Only where there
// can be none at all is anything deleted: a full disk or one that fails is no such reason.
#include "system/posix/native.hpp"

#include <cctype>
#include <cstring>
#include <ctime>

namespace zev::os {

namespace {

std::string home_trash() {
    char16_t wide[Z_PATH_MAX];
    if (!expand(wide, Z_PATH_MAX, u"%LOCALAPPDATA%/Trash")) return {};
    std::string path = to_utf8(wide);
    return path.starts_with('/') ? path : std::string();
}

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

bool usable(const std::string &trash) {
    for (const char *part : {"", "/files", "/info"}) {
        const std::string path = trash + part;
        if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return false;
        if (!own_directory(path)) return errno = EACCES, false; // somebody else's, or a link
    }
    return true;
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
    const time_t now = static_cast<time_t>(calls.now() / 1'000'000'000);
    tm parts = {};
    localtime_r(&now, &parts);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    return "[Trash Info]\nPath=" + percent_encoded(path) + "\nDeletionDate=" + date + "\n";
}

std::string numbered(const std::string &name, int number) {
    if (number == 1) return name;
    const size_t dot = name.rfind('.');
    const size_t end = dot == name.npos || dot == 0 ? name.size() : dot;
    return name.substr(0, end) + '.' + std::to_string(number) + name.substr(end);
}

enum class Put { done, taken, other_device, failed, no_trash };

// What a directory that can't be made says of the trash in it.
Put no_directory() {
    const bool broken = errno == ENOSPC || errno == EDQUOT || errno == EIO || errno == ENOMEM;
    return broken ? Put::failed : Put::no_trash;
}

Put put_as(const std::string &path, const std::string &trash, const std::string &name,
           const std::string &info, bool copied) {
    const std::string info_path = trash + "/info/" + name + ".trashinfo";
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
    if (!usable(trash)) return no_directory();
    const std::string told = top.empty() ? path : path.substr(top == "/" ? 1 : top.size() + 1);
    const std::string info = info_text(told), name = base_name(path);
    Put put = Put::taken;
    for (int number = 1; put == Put::taken && number < 10'000; ++number)
        put = put_as(path, trash, numbered(name, number), info, copied);
    return put;
}

bool settled(Put put) { return put == Put::done || put == Put::failed; }

Put into_any_trash(const std::string &path) {
    dev_t device, home_device;
    if (!device_of(path, &device)) return Put::failed;
    const std::string home = home_trash(), top = top_directory(path, device);
    const std::string user = std::to_string(getuid());
    const bool have_home = !home.empty() && make_dirs(parent(home));
    Put put = home.empty() || have_home ? Put::no_trash : no_directory();
    if (put == Put::failed) return put;
    if (have_home && device_of(parent(home), &home_device) && home_device == device)
        if (put = put_into(path, home, ""); settled(put)) return put;
    struct stat shared;
    const std::string base = (top == "/" ? "" : top) + "/.Trash";
    if (::lstat(base.c_str(), &shared) == 0 && S_ISDIR(shared.st_mode) &&
        (shared.st_mode & S_ISVTX))
        if (put = put_into(path, base + '/' + user, top); settled(put)) return put;
    if (put = put_into(path, base + '-' + user, top); settled(put)) return put;
    return have_home ? put_into(path, home, "", true) : Put::no_trash;
}

// Absolute, links resolved above the last component only: a link goes itself.
std::string absolute(std::string_view path) {
    char *above = realpath(parent(path).c_str(), nullptr);
    std::string text(above ? above : "");
    free(above);
    if (text.empty()) return text;
    return (text == "/" ? "" : text) + '/' + base_name(path);
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
        return put == Put::no_trash ? remove_path(path) : put == Put::done;
    });
    if (done) return true;
    const bool refused = errno == EACCES || errno == EPERM || errno == EROFS;
    return failed(errno == ENOENT ? ENOENT : refused ? EACCES : EIO);
}

} // namespace zev::os
