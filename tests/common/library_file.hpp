// The file that holds the library's code: this program, or a library that it is linked with.
#pragma once

#include "zev/error.h"

#include <filesystem>

#include <dlfcn.h>

namespace test {

inline std::filesystem::path library_file() {
    Dl_info info;
    if (dladdr(reinterpret_cast<void *>(&zGlobalCleanup), &info) && info.dli_fname[0] == '/')
        return std::filesystem::canonical(info.dli_fname);
    return std::filesystem::canonical("/proc/self/exe");
}

} // namespace test
