// What a watcher asks of the service now and then: whether it is there and can store. Nobody has to
// say who he is, so it names nothing.
#include "common/utf.hpp"
#include "network/http/server.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/places.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/path.h"

#include <map>

#include <sys/statvfs.h>

namespace zev::rest {

namespace {

struct Listed {
    timespec changed{};
    uint64_t count = 0;
};

// How many projects each owner has, counted again when his directory has changed.
using Counts = std::map<std::u16string, Listed>;

// One that can't be read has none.
std::vector<std::u16string> names_of(const std::u16string &directory) {
    std::vector<std::u16string> names;
    names_in(directory, &names);
    return names;
}

uint64_t count_projects(HttpServer &server, const std::u16string &repos) {
    if (!server.projects) server.projects = std::make_shared<Counts>();
    Counts &known = *static_cast<Counts *>(server.projects.get());
    Counts now;
    uint64_t sum = 0;
    for (const std::u16string &owner : names_of(repos)) {
        const std::u16string path = repos + u"/" + owner;
        struct stat info;
        if (!os::stat(path.c_str(), &info)) continue;
        Listed listed = known[owner];
        if (!is_equal(listed.changed, info.st_mtim)) listed = {info.st_mtim, names_of(path).size()};
        sum += listed.count;
        if (has_settled(info.st_mtim, os::calls.now())) now.emplace(owner, listed);
    }
    known.swap(now);
    return sum;
}

// A file can be made where no byte of it could be kept.
bool has_room(const zwchar *path) {
    struct statvfs room;
    return statvfs(to_utf8(path).c_str(), &room) != 0 || room.f_bavail > 0;
}

} // namespace

HttpResponse *report_health(Call &call) {
    HttpServer &server = *call.server;
    const zwchar *repos = zJsonPathGetString(zHttpServerConfig(&server), u"path.repos");
    if (!repos) return nullptr;
    zwchar conf[Z_PATH_MAX];
    zPathGetConf(conf);
    const bool writable =
        os::writable(repos) && os::writable(conf) && has_room(repos) && has_room(conf);
    const int64_t uptime = (os::calls.steady() - server.began) / kSecond;
    const uint64_t projects = count_projects(server, repos);
    Tree data(zJsonNewObject(u"version", zJsonNewString(u"" ZEV_VERSION), u"uptime",
                             zJsonNewInt(uptime), u"projects",
                             zJsonNewInt(static_cast<int64_t>(projects)), u"writable",
                             zJsonNewBoolean(writable), nullptr));
    return answer_data(writable ? 200 : 503, std::move(data));
}

} // namespace zev::rest
