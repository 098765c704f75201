// zev.conf beside the library, and the application data directory that it names. A file that is
// missing or damaged leaves the default; a directory without conf fails the start.
#include "common/settings.hpp"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/guard.hpp"
#include "system/path.hpp"
#include "zev/dir.h"
#include "zev/json.h"
#include "zev/path.h"

namespace zev {

namespace {

// Without a directory of its own the library reads no file: a bare name would mean whatever
// lies in the process's current directory.
Owned<Json, zJsonFree> read_conf(const zwchar *module) {
    zwchar path[Z_PATH_MAX];
    if (!module[0] || !path_join(path, module, u"zev.conf")) return nullptr;
    return Owned<Json, zJsonFree>(zJsonReadFile(path));
}

bool need_conf() {
    zwchar conf[Z_PATH_MAX];
    zPathGetConf(conf);
    return zPathDirExists(conf) || raise_not_found(conf);
}

bool make_logs() {
    zwchar logs[Z_PATH_MAX];
    zPathGetLog(logs);
    if (!zDirMake(logs, true)) return false;
    return zPathDirExists(logs) || fail_os(ENOTDIR, logs); // a file of that name passes for made
}

} // namespace

bool settings_appdata(zwchar *out, Json *conf) {
    Json *node = conf && zJsonIsObject(conf) ? zJsonObjectAt(conf, u"appdata") : nullptr;
    const bool given = node && zJsonIsString(node);
    const zwchar *text = given ? zJsonGetString(node) : u"..";
    if (zStrlenW(text) < Z_PATH_MAX) return zPathReplaceBackslash(out, text);
    return fail_os(ENAMETOOLONG, u"appdata");
}

bool settings_load() {
    zwchar module[Z_PATH_MAX] = {}, appdata[Z_PATH_MAX];
    if (!zPathGetBin(module)) module[0] = 0;
    Owned<Json, zJsonFree> conf = read_conf(module);
    if (!settings_appdata(appdata, conf.get())) return false;
    if (!zPathSetAppData(appdata, module)) // expands it, once: a value may have the marks itself
        return fail_os(ENAMETOOLONG, u"appdata");
    return need_conf() && make_logs();
}

} // namespace zev
