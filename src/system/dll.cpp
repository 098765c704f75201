// Shared objects of the host: opened and asked, with the loader's own words on failure.
#include "common/failure.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/file.h"

#include <cerrno>
#include <cstdlib>

using namespace zev;

void *zDllOpen(const zwchar *path) try {
    if (!path) return fail_args();
    std::string reason;
    if (void *library = os::module_open(path, &reason)) return library;
    const int refused = errno;
    return raise_module(refused, path, to_wide(reason).c_str());
} catch (...) {
    return fail_thrown();
}

bool zDllClose(void *library) { return library && os::module_close(library); }

void *zDllSym(void *library, const char *name) {
    if (!library || !name) return fail_args();
    return os::module_symbol(library, name);
}

bool zDllAtexit(void (*function)(void)) { return function && atexit(function) == 0; }
