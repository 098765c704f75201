// Looks into the directories, and the one way by which a project gets its name.
#include "network/rest/places.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "network/rest/rest.hpp"
#include "objects/store/removal.hpp"
#include "system/os.hpp"
#include "zev/path.h"
#include "zev/server.h"
#include "zev/str.h"

#include <algorithm>

namespace zev::rest {

// An administrator may keep an owner, or a project, elsewhere behind a link.
bool names_in(const std::u16string &directory, std::vector<std::u16string> *names) {
    std::vector<os::Name> found;
    if (!os::read_dir(directory.c_str(), &found) && errno != ENOENT) return false;
    for (os::Name &name : found) {
        if (!is_project_name(name.text.c_str())) continue;
        const std::u16string place = directory + u"/" + name.text;
        if (name.directory || zPathDirExists(place.c_str())) names->push_back(std::move(name.text));
    }
    std::ranges::sort(*names);
    return true;
}

Lies look_at(const zwchar *path, struct stat *directory) {
    struct stat own;
    struct stat &status = directory ? *directory : own;
    if (os::stat(path, &status)) return S_ISDIR(status.st_mode) ? Lies::there : Lies::nowhere;
    if (errno == ENOENT || errno == ENAMETOOLONG) return Lies::nowhere; // no name has that length
    fail_errno(path);
    return Lies::unknown;
}

std::u16string directory_of(std::u16string_view path) {
    return std::u16string(path.substr(0, path.rfind(u'/')));
}

bool has_twin(const std::u16string &place, const std::u16string &known) {
    const std::u16string name = place.substr(place.rfind(u'/') + 1);
    std::vector<os::Name> names;
    os::read_dir(directory_of(place).c_str(), &names);
    return std::ranges::any_of(names, [&](const os::Name &other) {
        return other.text != name && other.text != known &&
               zStrcasesameW(other.text.c_str(), name.c_str());
    });
}

NamesLock lock_names(const std::u16string &repos) {
    return NamesLock(zFlockOpen((repos + u"/zev-names").c_str(), false));
}

bool remove_project(const std::u16string &place) {
    const Removal removal = remove_repository(place);
    if (removal == Removal::partly) log_raised(kWarning, {}, kFacilitySrv);
    return removal != Removal::none;
}

bool give_name(const std::u16string &from, const std::u16string &place, bool new_owner) {
    const std::u16string owner = directory_of(place);
    if (!os::move(from.c_str(), place.c_str(), false)) return fail_errno(place);
    if (os::sync_dir(owner.c_str()) && (!new_owner || os::sync_dir(directory_of(owner).c_str())))
        return true;
    fail_errno(owner);
    os::move(place.c_str(), from.c_str(), false);
    return false;
}

} // namespace zev::rest

using namespace zev;

namespace {

// With its owner's directory, which goes again unless the project comes in.
bool adopt(const std::u16string &repos, const std::u16string &from, const zwchar *owner,
           const zwchar *name) {
    const std::u16string directory = repos + u"/" + owner, place = directory + u"/" + name;
    if (place.size() >= Z_PATH_MAX) return fail_os(ENAMETOOLONG, place);
    const rest::NamesLock lock = rest::lock_names(repos);
    if (!lock) return false;
    if (rest::has_twin(place) || rest::has_twin(directory)) return raise_exists(place);
    if (!os::make_dirs(directory.c_str())) return fail_errno(directory);
    if (rest::give_name(from, place, true)) return true;
    const KeptFailure kept;
    os::remove_dir(directory.c_str());
    return false;
}

} // namespace

bool zServerAdopt(const zwchar *repos, const zwchar *from, const zwchar *owner,
                  const zwchar *name) try {
    if (!repos || !from || !owner || !name) return fail_args();
    if (!rest::is_project_name(owner) || !rest::is_project_name(name)) return fail_args();
    return os::sync_tree(from) ? adopt(repos, from, owner, name) : fail_errno(from);
} catch (...) {
    return fail_thrown();
}
