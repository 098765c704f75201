// What a watcher asks of the service now and then: whether it is there and can store. Nobody has to
// say who he is, so it names nothing.
#include "network/http/server.hpp"
#include "network/rest/operations.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/path.h"

#include <map>

namespace zev::rest {

namespace {

struct Listed {
    timespec changed{};
    uint64_t count = 0;
};

// How many projects each owner has, counted again when his directory has changed.
using Counts = std::map<std::u16string, Listed>;

bool is_same(const timespec &a, const timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// The directories in a directory that follow the rules of names.
std::vector<std::u16string> names_in(const std::u16string &directory) {
    std::vector<os::Name> found;
    std::vector<std::u16string> names;
    if (!os::read_dir(directory.c_str(), &found)) return names;
    for (os::Name &each : found)
        if (each.directory && is_project_name(each.text.c_str()))
            names.push_back(std::move(each.text));
    return names;
}

uint64_t count_projects(HttpServer &server, const std::u16string &repos) {
    if (!server.projects) server.projects = std::make_shared<Counts>();
    Counts &known = *static_cast<Counts *>(server.projects.get());
    Counts now;
    uint64_t sum = 0;
    for (const std::u16string &owner : names_in(repos)) {
        const std::u16string path = repos + u"/" + owner;
        struct stat info;
        if (!os::stat(path.c_str(), &info)) continue;
        Listed listed = known[owner];
        if (!is_same(listed.changed, info.st_mtim)) listed = {info.st_mtim, names_in(path).size()};
        sum += listed.count;
        // One that changed just now may change again without another time.
        if (os::calls.now() / kSecond > info.st_mtim.tv_sec + 1) now.emplace(owner, listed);
    }
    known.swap(now);
    return sum;
}

} // namespace

HttpResponse *report_health(Call &call) {
    HttpServer &server = *call.server;
    const zwchar *repos = zJsonPathGetString(zHttpServerConfig(&server), u"path.repos");
    if (!repos) return nullptr;
    zwchar conf[Z_PATH_MAX];
    zPathGetConf(conf);
    const bool writable = os::writable(repos) && os::writable(conf);
    const int64_t uptime = (os::calls.steady() - server.began) / kSecond;
    const uint64_t projects = count_projects(server, repos);
    Tree data(zJsonNewObject(u"version", zJsonNewString(u"" ZEV_VERSION), u"uptime",
                             zJsonNewInt(uptime), u"projects",
                             zJsonNewInt(static_cast<int64_t>(projects)), u"writable",
                             zJsonNewBoolean(writable), nullptr));
    return answer_data(writable ? 200 : 503, std::move(data));
}

} // namespace zev::rest
