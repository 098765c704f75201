// Writing a configuration file, for the families that keep something in one.
#pragma once

#include "objects/store/repository.hpp"

#include <functional>
#include <string>

namespace zev {

// What is to become of a configuration file that was just read; gives libgit2's code.
using ConfigChange = std::function<int(git_config *file)>;

// Changes the repository's own file under its lock, see config.cpp. False with the reason raised.
bool change_config(git_repository *git, const ConfigChange &change);

} // namespace zev
