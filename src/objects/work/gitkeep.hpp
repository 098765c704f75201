// The name of keep-files, and what those of directories that are made have in them.
#pragma once

#include <string_view>

namespace zev {

inline constexpr std::string_view kKeepFile = ".gitkeep";
inline constexpr std::u16string_view kKeepFileWide = u".gitkeep";
inline constexpr std::string_view kKeepText = "# Ignore everything in this directory\n"
                                              "*\n"
                                              "# Except this file !.gitkeep";
static_assert(kKeepText.size() == 68);

} // namespace zev
