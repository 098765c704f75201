// Desktop: what the user's desktop does with a file.
#pragma once

#include <filesystem>

namespace host {

// $XDG_CACHE_HOME/zev or ~/.cache/zev, which is made if it isn't there; for this user's eyes only.
std::filesystem::path cache_directory();

// Hands a file to the program that the desktop has for it, which goes on by itself. False where
// there is no desktop, or no way to ask it.
bool open_in_desktop(const std::filesystem::path &file);

} // namespace host
