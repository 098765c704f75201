// The viewer belongs to the desktop's session, not to the terminal that this program runs in.
#include "desktop.hpp"

#include "host.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

std::string variable(const char *name) {
    const char *value = getenv(name);
    return value ? value : "";
}

// With nothing on its standard streams. False if it can't be started.
bool start(const char *program, const std::string &argument) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    if (posix_spawn_file_actions_init(&actions)) return false;
    posix_spawnattr_init(&attributes);
    std::string name = program, word = argument;
    char *words[] = {name.data(), word.data(), nullptr};
    pid_t process = 0;
    int code = posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    for (int i = 0; i < 3 && !code; ++i)
        code = posix_spawn_file_actions_addopen(&actions, i, "/dev/null", O_RDWR, 0);
    if (!code) code = posix_spawnp(&process, program, &actions, &attributes, words, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return !code;
}

// What lies there already may be another user's, or lead to such a place.
void make_own(const fs::path &directory) {
    if (mkdir(directory.c_str(), S_IRWXU) && errno != EEXIST)
        throw Failed(kSystem, errno, directory.string() + ": " + strerror(errno));
    struct stat info;
    const bool is_own =
        !lstat(directory.c_str(), &info) && S_ISDIR(info.st_mode) && info.st_uid == geteuid();
    if (!is_own)
        throw Failed(kSystem, say("%s: is no directory of yours; name the picture with -o",
                                  directory.string()));
    if (info.st_mode & (S_IRWXG | S_IRWXO)) fs::permissions(directory, fs::perms::owner_all);
}

} // namespace

fs::path cache_directory() {
    fs::path base = variable("XDG_CACHE_HOME");
    if (!base.is_absolute()) {
        const fs::path home = variable("HOME");
        if (!home.is_absolute())
            throw Failed(kNotFound, "there is no home directory; name the picture with -o");
        base = home / ".cache";
    }
    fs::create_directories(base);
    const fs::path own = base / "zev";
    make_own(own);
    return own;
}

bool open_in_desktop(const fs::path &file) {
    if (variable("DISPLAY").empty() && variable("WAYLAND_DISPLAY").empty()) return false;
    return start("xdg-open", file.string());
}

} // namespace host
