// The projects of a service that was killed, before the next one serves them. What holds: a lock
// that nobody holds any more is gone before the first request, since it would refuse every commit
// on its branch; what an administrator's git had locked before is not touched.
#include "common/errno.hpp"
#include "network/rest/rest.hpp"
#include "objects/store/repository.hpp"
#include "objects/store/sweep.hpp"
#include "system/os.hpp"
#include "zev/path.h"
#include "zev/server.h"

#include <string>
#include <vector>

using namespace zev;

namespace {

using RepositoryPtr = Owned<Repository, zRepositoryFree>;

// The directories in one that can be owners or projects, each with the path to it.
std::vector<std::u16string> places_in(const std::u16string &directory) {
    std::vector<os::Name> names;
    std::vector<std::u16string> places;
    os::read_dir(directory.c_str(), &names);
    for (const os::Name &name : names)
        if (name.directory && rest::is_project_name(name.text.c_str()))
            places.push_back(directory + u"/" + name.text);
    return places;
}

// An owner whose first project was not finished goes with it.
bool recover_owner(const std::u16string &owner, const timespec &since) {
    const std::u16string aside = owner + u"/.zev-removed";
    sweep_aside(aside); // all that lies beside it
    bool clean = !zPathDirExists(aside.c_str()) || raise_exists(aside);
    for (const std::u16string &place : places_in(owner)) {
        const RepositoryPtr repository(zRepositoryOpenBare(place.c_str()));
        if (repository) clean = sweep_since(repository.get(), since) && clean;
    }
    os::remove_dir(owner.c_str());
    return clean;
}

} // namespace

bool zServerRecover(const zwchar *repos, const Time *since) try {
    if (!repos || !since) return fail_args();
    const timespec time{static_cast<time_t>(since->seconds), static_cast<long>(since->nanoseconds)};
    bool clean = true;
    for (const std::u16string &owner : places_in(repos))
        clean = recover_owner(owner, time) && clean;
    return clean;
} catch (...) {
    return fail_thrown();
}
