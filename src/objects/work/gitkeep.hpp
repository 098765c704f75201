// The name of keep-files.
#pragma once

#include <string_view>

namespace zev {

inline constexpr std::string_view kKeepFile = ".gitkeep";
inline constexpr std::u16string_view kKeepFileWide = u".gitkeep";

} // namespace zev
