// Names follow the one rule of the service; "." and ".." are none, and neither is the place where
// projects go while they are removed.
#include "projects.hpp"

#include <algorithm>
#include <filesystem>

namespace host {

namespace fs = std::filesystem;

namespace {

bool is_name(const std::string &name) {
    for (const char *other : {".", "..", ".git", ".zev-removed"})
        if (name == other) return false;
    return !name.empty() && zSNValid(wide(name).c_str(), true);
}

std::vector<std::string> names_in(const fs::path &directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_directory(error) && is_name(name)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

std::string project_path(const Config &config, const std::string &name) {
    const size_t slash = name.find('/');
    if (slash == name.npos || !is_name(name.substr(0, slash)) || !is_name(name.substr(slash + 1)))
        throw Failed(kInvalid, name + ": is no name of a project, which is OWNER/NAME");
    return config.repos() + "/" + name;
}

std::vector<std::string> project_names(const Config &config) {
    std::vector<std::string> names;
    for (const std::string &owner : names_in(config.repos()))
        for (const std::string &name : names_in(fs::path(config.repos()) / owner))
            names.push_back(owner + "/" + name);
    return names;
}

OwnedRepository open_project(const Config &config, const std::string &name) {
    const std::string path = project_path(config, name);
    if (!fs::is_directory(path)) throw Failed(kNotFound, name + ": no such project");
    return OwnedRepository(check(zRepositoryOpenBare(wide(path).c_str()), name));
}

} // namespace host
