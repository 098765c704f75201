// The program, this library's own file, the environment and the places that it names.
#include "system/posix/native.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <pwd.h>

namespace zev::os {

namespace {

std::string_view without_deleted(std::string_view path) {
    constexpr std::string_view kMark = " (deleted)"; // put there by the kernel after an upgrade
    if (path.ends_with(kMark)) path.remove_suffix(kMark.size());
    return path;
}

// The file that is mapped at an address, absolute even if the loader was given a relative name.
std::string mapped_file(const void *address) {
    const auto wanted = reinterpret_cast<uintptr_t>(address);
    FILE *maps = fopen("/proc/self/maps", "re");
    if (!maps) return {};
    char *line = nullptr;
    size_t room = 0;
    std::string path;
    while (path.empty() && getline(&line, &room, maps) > 0) {
        unsigned long from, to;
        const char *name = strchr(line, '/');
        if (!name || sscanf(line, "%lx-%lx", &from, &to) != 2) continue;
        if (wanted >= from && wanted < to)
            path = without_deleted(std::string_view(name, strcspn(name, "\n")));
    }
    free(line);
    fclose(maps);
    return path;
}

std::string get_env(const char *name) {
    const char *value = getenv(name);
    return value ? value : "";
}

std::string home() {
    std::string path = get_env("HOME");
    if (!path.empty()) return path;
    passwd entry, *found = nullptr;
    char text[4096];
    getpwuid_r(getuid(), &entry, text, sizeof text, &found);
    return found ? found->pw_dir : "";
}

std::string temporary() {
    std::string path = get_env("TMPDIR");
    return path.empty() ? "/tmp" : path;
}

// What a name stands for; false if for nothing.
bool known(const std::string &name, std::string *value) {
    if (const char *set = getenv(name.c_str()))
        *value = set;
    else if (name == "APPDATA")
        *value = user_directory("XDG_CONFIG_HOME", "/.config");
    else if (name == "LOCALAPPDATA")
        *value = user_directory("XDG_DATA_HOME", "/.local/share");
    else if (name == "USERPROFILE")
        *value = home();
    else if (name == "TEMP" || name == "TMP")
        *value = temporary();
    else
        return false;
    return true;
}

std::string expanded(const std::string &text) {
    std::string out, value;
    size_t at = 0;
    while (at < text.size()) {
        const size_t open = text.find('%', at);
        const size_t close = open == text.npos ? open : text.find('%', open + 1);
        if (close == text.npos) break;
        out.append(text, at, open - at);
        if (known(text.substr(open + 1, close - open - 1), &value)) {
            out += value;
            at = close + 1;
        } else { // stays as written; its end may be the next one's beginning
            out.append(text, open, close - open);
            at = close;
        }
    }
    return out.append(text, std::min(at, text.size()));
}

// Where a file's directory lies, whatever link leads there: the loader finds /usr/lib by the link
// /lib, above which nothing of ours is. A file that is a link itself stays one.
std::string with_real_directory(const std::string &path) {
    const size_t slash = path.rfind('/');
    char real[PATH_MAX];
    if (slash == path.npos || !realpath(path.substr(0, slash + 1).c_str(), real)) return path;
    return (std::string(real) == "/" ? "" : real) + path.substr(slash);
}

} // namespace

std::string user_directory(const char *variable, const char *below_home) {
    std::string path = get_env(variable);
    if (path.starts_with('/')) return path;
    path = home();
    return path.starts_with('/') ? path + below_home : std::string();
}

bool own_file(char16_t *out, size_t size) {
    return guarded([&] {
        static const char here = 0;
        Dl_info info;
        std::string path;
        if (dladdr(&here, &info) && info.dli_fname) path = info.dli_fname;
        if (!path.starts_with('/')) path = mapped_file(&here);
        return path.empty() ? failed(ENOENT) : put_wide(with_real_directory(path), out, size);
    });
}

bool program(char16_t *out, size_t size) {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length < 0) return false;
    return put_wide(without_deleted({path, static_cast<size_t>(length)}), out, size);
}

bool expand(char16_t *out, size_t size, const char16_t *text) {
    return guarded([&] { return put_wide(expanded(to_utf8(text)), out, size); });
}

bool temp_dir(char16_t *out, size_t size) {
    return guarded([&] {
        std::string path = temporary();
        if (path.back() != '/') path += '/';
        return put_wide(path, out, size);
    });
}

bool state_dir(char16_t *out, size_t size) {
    return guarded([&] {
        const std::string path = user_directory("XDG_STATE_HOME", "/.local/state");
        return path.empty() ? failed(ENOENT) : put_wide(path, out, size);
    });
}

bool set_env(const char *name, const char *value) {
    return (*value ? setenv(name, value, 1) : unsetenv(name)) == 0;
}

std::string locale_name(const char *category) {
    for (const char *name : {"LC_ALL", category, "LANG"})
        if (std::string value = get_env(name); !value.empty()) return value;
    return "C";
}

// The loader sets no errno for a file that is no module: 2 stands for a missing one, 8 for that.
void *module_open(const char16_t *path, std::string *reason) {
    const Native name(path);
    if (!name) {
        *reason = strerrordesc_np(errno);
        return nullptr;
    }
    if (void *module = dlopen(name, RTLD_NOW | RTLD_LOCAL)) return module;
    const char *text = dlerror();
    *reason = text ? text : "";
    errno = access(name, F_OK) != 0 ? ENOENT : ENOEXEC;
    return nullptr;
}

bool module_close(void *module) { return dlclose(module) == 0; }
void *module_symbol(void *module, const char *name) { return dlsym(module, name); }

} // namespace zev::os
