#include "zev/config.h"

#include "common/utf.hpp"
#include "objects/store/repository.hpp"
#include "objects/store/sweep.hpp"
#include "zev/str.h"

#include <memory>
#include <string>

using namespace zev;

struct Config {
    git::Config handle;
    git_repository *owner = nullptr; // whose file is written under the lock on it
};

namespace {

template <class F> Config *opened(F open, git_repository *owner = nullptr) {
    auto config = std::make_unique<Config>();
    config->owner = owner;
    const int code = open(out(config->handle));
    if (code < 0) return fail_git(code);
    return config.release();
}

// One read: false with libgit2's failure raised.
template <class F> bool reads(const Config *config, const zwchar *key, F read, Here at = {}) {
    if (!config || !key) return fail_args(at);
    const int code = read(config->handle.get(), to_utf8(key).c_str());
    return code < 0 ? fail_git(code) : true;
}

// Whether the file that a write would go to has that value. Others, of the user or the system, may
// change behind its back.
bool stands(git_config *config, const std::string &key, const std::string &value) {
    git_config_entry *entry = nullptr;
    if (git_config_get_entry(&entry, config, key.c_str()) < 0) return git_error_clear(), false;
    const bool same = entry->value && entry->value == value && // a key alone has none
                      entry->level >= GIT_CONFIG_LEVEL_LOCAL;
    git_config_entry_free(entry);
    return same;
}

template <class F> bool writes(Config *config, F write) {
    const Lock lock = config->owner ? lock_config(config->owner) : nullptr;
    if (config->owner && !lock) return false;
    const int code = write();
    return code < 0 ? fail_git(code) : true;
}

// `text` is the value as the file has it.
template <class F>
bool sets(Config *config, const zwchar *key, const std::string &text, F set, Here at = {}) {
    if (!config || !key) return fail_args(at);
    const std::string name = to_utf8(key);
    if (stands(config->handle.get(), name, text)) return true;
    return writes(config, [&] { return set(config->handle.get(), name.c_str()); });
}

} // namespace

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
    return opened(
        [&](git_config **handle) { return git_config_open_ondisk(handle, to_utf8(path).c_str()); });
} catch (...) {
    return fail_thrown();
}

Config *zConfigUser() try {
    git::Config all;
    auto config = std::make_unique<Config>();
    int code = git_config_open_default(out(all));
    if (code >= 0) code = git_config_open_global(out(config->handle), all.get());
    if (code < 0) git_error_clear();
    return code < 0 ? nullptr : config.release();
} catch (...) {
    return fail_thrown();
}

Config *zConfigRepo(Repository *repository) try {
    if (!repository) return fail_args();
    git_repository *owner = repository->handle.get();
    return opened([&](git_config **handle) { return git_repository_config(handle, owner); }, owner);
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
    return writes(config, [&] {
        return git_config_delete_entry(config->handle.get(), to_utf8(key).c_str());
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
