// The projects of a service that was killed, before the next one serves them. What holds: a lock
// that nobody holds any more is gone before the first request, since it would refuse every commit
// on its branch; what an administrator's git had locked before is not touched.
#include "common/errno.hpp"
#include "network/rest/kept_projects.hpp"
#include "network/rest/places.hpp"
#include "objects/store/removal.hpp"
#include "objects/store/repository.hpp"
#include "objects/store/sweep.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"
#include "zev/path.h"
#include "zev/server.h"

#include <string>
#include <vector>

using namespace zev;

namespace {

// Each owner's or project's place in a directory.
bool places_in(const std::u16string &directory, std::vector<std::u16string> *places) {
    if (!rest::names_in(directory, places)) return fail_errno(directory);
    for (std::u16string &name : *places) name.insert(0, directory + u"/");
    return true;
}

// What a change of a project's rights was killed over. It saves nothing: the rights were replaced
// at once, or are as they were.
bool drop_rights_lock(const std::u16string &project) {
    const std::u16string rights = project + u"/AUTHZ", lock = lock_path(rights);
    zFlockPurge(rights.c_str());
    return !zPathExists(lock.c_str()) || raise_exists(lock);
}

bool recover_owner(const std::u16string &owner, const timespec &since) {
    const std::u16string aside = owner + u"/.zev-removed";
    sweep_aside(aside); // all that lies beside it
    bool clean = !zPathDirExists(aside.c_str()) || raise_exists(aside);
    std::vector<std::u16string> places;
    clean = places_in(owner, &places) && clean;
    for (const std::u16string &place : places) {
        const RepositoryPtr repository(zRepositoryOpenBare(place.c_str()));
        if (repository) clean = sweep_since(repository.get(), since) && clean;
        if (repository) clean = drop_rights_lock(place) && clean;
    }
    return clean;
}

// An owner whose first project was not finished goes with it, and the lock file of names that a
// killed process left; unless somebody is about to bring a project in.
void drop_empty(const std::u16string &repos, const std::vector<std::u16string> &owners) {
    const KeptFailure kept;
    const rest::NamesLock names = rest::lock_names(repos);
    if (!names) return;
    for (const std::u16string &owner : owners) os::remove_dir(owner.c_str());
}

} // namespace

bool zServerRecover(const zwchar *repos, const Time *since) try {
    if (!repos || !since) return fail_args();
    const timespec time{static_cast<time_t>(since->seconds), static_cast<long>(since->nanoseconds)};
    std::vector<std::u16string> owners;
    bool clean = places_in(repos, &owners);
    for (const std::u16string &owner : owners) clean = recover_owner(owner, time) && clean;
    drop_empty(repos, owners);
    return clean;
} catch (...) {
    return fail_thrown();
}
