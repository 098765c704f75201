// The authentication module, which lies beside the library: loaded when a service starts, and let
// go when it ends. A table that is handed out has every slot filled.
#include "zev/auth.h"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/file.h"
#include "zev/lang.h"
#include "zev/path.h"

#include <algorithm>
#include <cstring>
#include <iterator>

using namespace zev;

namespace {

constexpr const zwchar *kModule = u"libzevauth.so";
constexpr const char *kInit = "zAuthSvrInit";
using InitFn = int32_t (*)(AuthTable *table);

using TablePtr = Owned<AuthTable, zAuthServerShutdown>;

const zwchar *message(const zwchar *key) {
    return zI18nTextFormat(zI18nCurrentLang(), key, kModule);
}

// The loader's reason stays.
Failure fail_load(Here at = {}) {
    zSetErrorMsg(u"%s", message(u"sys.eFailedToLoadModule_s"));
    return fail_raised(at);
}

Failure fail_init(const zwchar *reason, Here at = {}) {
    return logged(raise_other(reason, message(u"sys.eFailedToInitModule_s")), at);
}

// The handle, then nothing but operations.
bool is_filled(const AuthTable &table) {
    static_assert(sizeof(AuthTable) % sizeof(void *) == 0);
    void *slots[sizeof(AuthTable) / sizeof(void *)];
    memcpy(slots, &table, sizeof table);
    return std::find(std::begin(slots), std::end(slots), nullptr) == std::end(slots);
}

} // namespace

AuthTable *zAuthServerStart(void) try {
    zwchar path[Z_PATH_MAX];
    if (!zPathGetBin(path) || !zPathAppend(path, kModule)) return fail_init(u"path too long");
    TablePtr table(new AuthTable{});
    table->module = zDllOpen(path);
    if (!table->module) return fail_load();
    const auto init = reinterpret_cast<InitFn>(zDllSym(table->module, kInit));
    if (!init) return fail_init(u"zAuthSvrInit is missing");
    init(table.get());
    if (!is_filled(*table)) return fail_init(u"an operation is missing");
    return table.release();
} catch (...) {
    return fail_thrown();
}

void zAuthServerShutdown(AuthTable *table) {
    if (!table) return;
    zDllClose(table->module);
    delete table;
}
