// Shared objects of the host: opened and asked, with the loader's own words on failure.
#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/file.h"

#include <cerrno>
#include <cstdlib>

using namespace zev;

namespace {

constexpr int32_t kClassSystem = 9;

} // namespace

void *zDllOpen(const zwchar *path) try {
    if (!path) return fail_args();
    std::string reason;
    if (void *library = os::module_open(path, &reason)) return library;
    const int32_t code = static_cast<int32_t>(err_from_host(errno));
    zRaiseError(kClassSystem, code, path, to_wide(reason).c_str());
    return nullptr;
} catch (...) {
    return fail_thrown();
}

bool zDllClose(void *library) { return library && os::module_close(library); }

void *zDllSym(void *library, const char *name) {
    if (!library || !name) return fail_args();
    return os::module_symbol(library, name);
}

bool zDllAtexit(void (*function)(void)) { return function && atexit(function) == 0; }
