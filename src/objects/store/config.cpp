// A configuration file is changed in one step, which is on the disk when the call returns: the new
// text grows in <file>.lock, the lock that git and libgit2 know of, is synced and renamed.
//
// It is read anew for each change, through a handle of its own. One that wrote a value goes on to
// believe in it when the file is put back from outside to the bytes that it read before.
#include "objects/store/config.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "objects/store/sweep.hpp"
#include "system/os.hpp"
#include "zev/config.h"
#include "zev/str.h"

#include <cerrno>
#include <memory>

using namespace zev;

struct Config {
    git::Config handle;
    std::string path{};              // of the file that is written; empty: what the handle holds
    git_repository *owner = nullptr; // whose file it is, written under the lock on it
};

namespace {

std::string own_path(git_repository *git) {
    return std::string(git_repository_commondir(git)) + "config";
}

bool take_lock(const std::u16string &lock) {
    os::Mode mode;
    mode.write = mode.create = mode.exclusive = true;
    const int fd = os::open_fd(lock.c_str(), mode);
    if (fd >= 0) return os::close_fd(fd), true;
    if (errno != EEXIST) return fail_os(errno, lock);
    git_error_set(GIT_ERROR_OS, "'%s' is in the way", to_utf8(lock).c_str());
    return fail_git(GIT_ELOCKED);
}

// A file that is not there yet is an empty one.
bool copy_text(const std::u16string &file, const std::u16string &lock) {
    os::Mode read, write;
    read.read = write.write = true;
    const int from = os::open_fd(file.c_str(), read);
    if (from < 0) return errno == ENOENT ? true : fail_os(errno, file);
    const Finally close_from([from] { os::close_fd(from); });
    const int to = os::open_fd(lock.c_str(), write);
    if (to < 0) return fail_os(errno, lock);
    const Finally close_to([to] { os::close_fd(to); });
    return os::copy_bytes(from, to) ? true : fail_os(errno, lock);
}

// libgit2 writes the text as it writes any configuration, under a lock of its own beside it.
bool apply(const std::u16string &lock, const ConfigChange &change) {
    git::Config text;
    int code = git_config_open_ondisk(out(text), to_utf8(lock).c_str());
    if (code >= 0) code = change(text.get());
    return code < 0 ? fail_git(code) : true;
}

// With the rights of the file that it replaces; a disk that knows none refuses them.
bool sync_lock(const std::u16string &lock, const std::u16string &file) {
    struct stat status;
    os::Mode mode;
    mode.read = mode.write = true;
    const int fd = os::open_fd(lock.c_str(), mode);
    if (fd < 0) return fail_os(errno, lock);
    const Finally close([fd] { os::close_fd(fd); });
    if (os::stat(file.c_str(), &status)) os::fd_mode(fd, status.st_mode & 07777);
    return os::fd_sync(fd) ? true : fail_os(errno, lock);
}

bool put_in_place(const std::u16string &lock, const std::u16string &file) {
    if (!os::move(lock.c_str(), file.c_str(), true)) return fail_os(errno, file);
    const std::u16string directory = file.substr(0, file.rfind(u'/') + 1);
    // The change stands whether or not this succeeds.
    if (!os::sync_dir(directory.empty() ? u"." : directory.c_str()))
        fail_os(errno, file), log_raised(kWarning);
    return true;
}

bool change_file(const std::string &path, const ConfigChange &change) {
    std::u16string file = to_wide(path), real;
    if (os::real_path(file.c_str(), &real)) file = real; // what a link names is written
    struct stat status;                                  // a device would be replaced
    if (os::stat(file.c_str(), &status) && !S_ISREG(status.st_mode)) return fail_os(EACCES, file);
    const std::u16string lock = file + u".lock";
    if (!take_lock(lock)) return false;
    if (copy_text(file, lock) && apply(lock, change) && sync_lock(lock, file) &&
        put_in_place(lock, file))
        return true;
    const KeptFailure kept;
    os::unlink(lock.c_str());
    return false;
}

template <class F> Config *opened(F open, const std::string &path = {}) {
    auto config = std::make_unique<Config>();
    config->path = path;
    const int code = open(out(config->handle));
    if (code < 0) return fail_git(code);
    return config.release();
}

Config *opened_file(const std::string &path) {
    return opened([&](git_config **handle) { return git_config_open_ondisk(handle, path.c_str()); },
                  path);
}

// One read: false with libgit2's failure raised.
template <class F> bool reads(const Config *config, const zwchar *key, F read, Here at = {}) {
    if (!config || !key) return fail_args(at);
    const int code = read(config->handle.get(), to_utf8(key).c_str());
    return code < 0 ? fail_git(code) : true;
}

// Whether the file that a write would go to has that value now.
bool stands(const std::string &path, const std::string &key, const std::string &value) {
    git::Config file;
    git_config_entry *entry = nullptr;
    int code = git_config_open_ondisk(out(file), path.c_str());
    if (code >= 0) code = git_config_get_entry(&entry, file.get(), key.c_str());
    if (code < 0) return git_error_clear(), false;
    const bool same = entry->value && entry->value == value; // a key alone has none
    git_config_entry_free(entry);
    return same;
}

bool writes(Config *config, const ConfigChange &change) {
    if (config->owner) return change_config(config->owner, change);
    if (!config->path.empty()) return change_file(config->path, change);
    const int code = change(config->handle.get());
    return code < 0 ? fail_git(code) : true;
}

// `text` is the value as the file has it.
template <class F>
bool sets(Config *config, const zwchar *key, const std::string &text, F set, Here at = {}) {
    if (!config || !key) return fail_args(at);
    const std::string name = to_utf8(key);
    if (!config->path.empty() && stands(config->path, name, text)) return true;
    return writes(config, [&](git_config *file) { return set(file, name.c_str()); });
}

// The user's own file, also one that is not there yet; empty when nothing says where it would be.
std::string user_path() {
    git_buf found = GIT_BUF_INIT;
    const Finally dispose([&] { git_buf_dispose(&found); });
    if (!git_config_find_xdg(&found) || !git_config_find_global(&found)) return found.ptr;
    if (git_libgit2_opts(GIT_OPT_GET_SEARCH_PATH, GIT_CONFIG_LEVEL_GLOBAL, &found) < 0) return {};
    const std::string places = found.ptr ? found.ptr : "";
    const std::string first = places.substr(0, places.find(GIT_PATH_LIST_SEPARATOR));
    return first.empty() ? first : first + "/.gitconfig";
}

} // namespace

namespace zev {

bool change_config(git_repository *git, const ConfigChange &change) {
    const Lock lock = lock_config(git);
    return lock && change_file(own_path(git), change);
}

} // namespace zev

// ---- Opening

Config *zConfigNew() try {
    return opened([](git_config **handle) { return git_config_new(handle); });
} catch (...) {
    return fail_thrown();
}

Config *zConfigDup(Config *config) try {
    if (!config) return fail_args();
    return opened(
        [&](git_config **handle) { return git_config_snapshot(handle, config->handle.get()); });
} catch (...) {
    return fail_thrown();
}

Config *zConfigRead(const zwchar *path) try {
    if (!path) return fail_args();
    return opened_file(git::path(path));
} catch (...) {
    return fail_thrown();
}

Config *zConfigUser() try {
    const std::string path = user_path();
    const KeptFailure kept; // none there raises nothing
    return path.empty() ? nullptr : opened_file(path);
} catch (...) {
    return fail_thrown();
}

Config *zConfigRepo(Repository *repository) try {
    if (!repository) return fail_args();
    git_repository *owner = repository->handle.get();
    Config *config = opened(
        [&](git_config **handle) { return git_repository_config(handle, owner); }, own_path(owner));
    if (config) config->owner = owner;
    return config;
} catch (...) {
    return fail_thrown();
}

void zConfigFree(Config *config) { delete config; }

// ---- Entries

bool zConfigExists(const Config *config, const zwchar *key) try {
    return reads(config, key, [](git_config *handle, const char *name) {
        git_config_entry *entry = nullptr;
        const int code = git_config_get_entry(&entry, handle, name);
        git_config_entry_free(entry);
        return code;
    });
} catch (...) {
    return fail_thrown();
}

bool zConfigRemove(Config *config, const zwchar *key) try {
    if (!config || !key) return fail_args();
    return writes(config, [&](git_config *file) {
        return git_config_delete_entry(file, to_utf8(key).c_str());
    });
} catch (...) {
    return fail_thrown();
}

bool zConfigGetBool(const Config *config, const zwchar *key) try {
    int value = 0;
    const bool found = reads(config, key, [&](git_config *handle, const char *name) {
        return git_config_get_bool(&value, handle, name);
    });
    return found && value;
} catch (...) {
    return fail_thrown();
}

int32_t zConfigGetInt(const Config *config, const zwchar *key) try {
    int32_t value = 0;
    const bool found = reads(config, key, [&](git_config *handle, const char *name) {
        return git_config_get_int32(&value, handle, name);
    });
    return found ? value : 0;
} catch (...) {
    return fail_thrown(), 0;
}

int64_t zConfigGetLarge(const Config *config, const zwchar *key) try {
    int64_t value = 0;
    const bool found = reads(config, key, [&](git_config *handle, const char *name) {
        return git_config_get_int64(&value, handle, name);
    });
    return found ? value : 0;
} catch (...) {
    return fail_thrown(), 0;
}

const zwchar *zConfigGetString(const Config *config, const zwchar *key) try {
    git_buf text = GIT_BUF_INIT;
    const Finally dispose([&] { git_buf_dispose(&text); });
    const bool found = reads(config, key, [&](git_config *handle, const char *name) {
        return git_config_get_string_buf(&text, handle, name);
    });
    return found ? zStrfromutf8(text.ptr) : nullptr;
} catch (...) {
    return fail_thrown();
}

bool zConfigSetBool(Config *config, const zwchar *key, bool value) try {
    return sets(config, key, value ? "true" : "false", [&](git_config *handle, const char *name) {
        return git_config_set_bool(handle, name, value);
    });
} catch (...) {
    return fail_thrown();
}

bool zConfigSetInt(Config *config, const zwchar *key, int32_t value) try {
    return sets(config, key, std::to_string(value), [&](git_config *handle, const char *name) {
        return git_config_set_int32(handle, name, value);
    });
} catch (...) {
    return fail_thrown();
}

bool zConfigSetLarge(Config *config, const zwchar *key, int64_t value) try {
    return sets(config, key, std::to_string(value), [&](git_config *handle, const char *name) {
        return git_config_set_int64(handle, name, value);
    });
} catch (...) {
    return fail_thrown();
}

bool zConfigSetString(Config *config, const zwchar *key, const zwchar *value) try {
    if (!value) return fail_args();
    const std::string text = to_utf8(value);
    return sets(config, key, text, [&](git_config *handle, const char *name) {
        return git_config_set_string(handle, name, text.c_str());
    });
} catch (...) {
    return fail_thrown();
}
