// Keep-files: Git keeps no directories, so that each tracked one holds a file for it.
#pragma once

#include "copy.hpp"

namespace host {

inline constexpr std::string_view kKeepFile = ".gitkeep";
inline bool is_keep(std::string_view path) {
    return path == kKeepFile || path.ends_with("/.gitkeep");
}

// Those below and above the paths get theirs, in the index and on disk.
void keep_directories(const WorkingCopy &copy, Index *index, const Paths &paths);

} // namespace host
