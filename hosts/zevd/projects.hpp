// Projects: the repositories of a service by their names, "owner/name".
#pragma once

#include "config.hpp"
#include "host.hpp"

#include <string>
#include <vector>

namespace host {

// Where a project is, or would be. Throws for what can't be the name of one.
std::string project_path(const Config &config, const std::string &name);
// In order.
std::vector<std::string> project_names(const Config &config);
OwnedRepository open_project(const Config &config, const std::string &name);

} // namespace host
