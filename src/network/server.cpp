// The server frame: the directories of the service out of its configuration, the kind of server
// that its schema names, and the one server that a process may run.
//
// States: new --published--> running --shut down--> stopping --loop ended--> stopped, and from
// running straight to stopped when the loop ends by itself. The running server is published from
// before its loop until it has been freed, and both ends of that hold the lock: whoever shuts it
// down from another thread has it whole in his hands.
#include "network/server.hpp"

#include "common/errno.hpp"
#include "common/failure.hpp"
#include "common/guard.hpp"
#include "objects/store/repository.hpp"
#include "zev/auth.h"
#include "zev/dir.h"
#include "zev/http_server.h"
#include "zev/json.h"
#include "zev/lang.h"
#include "zev/path.h"
#include "zev/str.h"
#include "zev/thread.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>

using namespace zev;

namespace {

constexpr const zwchar *kRoot = u"path.root", *kRepos = u"path.repos";

const zwchar *message(const zwchar *key, const zwchar *setting) {
    return zI18nTextFormat(zI18nCurrentLang(), key, setting);
}

Failure fail_missing(const zwchar *setting, Here at = {}) {
    return logged_srv(raise_args(message(u"srv.eMissingSetting_s", setting)), at);
}
Failure fail_improper(const zwchar *setting, Here at = {}) {
    return logged_srv(raise_args(message(u"srv.eImproperSetting_s", setting)), at);
}
Failure fail_directory(const zwchar *setting, Here at = {}) {
    return logged_srv(fail_errno(message(u"srv.eImproperSetting_s", setting)), at);
}
// Where a server is asked about and none runs.
Failure fail_none(Here at = {}) { return logged_srv(raise_args(), at); }

// A path setting in full, against a base that may be null; references to the environment are put
// in. Nothing is raised.
bool resolve(zwchar *out, const zwchar *path, const zwchar *base) {
    std::fill_n(out, Z_PATH_MAX, u'\0');
    if (zPathIsRelative(path)) {
        if (!base || zPathIsRelative(base) || !zPathMakeAbsolute(out, path, base)) return false;
    } else {
        std::copy_n(path, std::min<uint64_t>(zStrlenW(path), Z_PATH_MAX - 1), out);
        std::replace(out, out + Z_PATH_MAX, u'\\', u'/');
    }
    return zPathExpandEnvStrings(out, out);
}

bool resolve_root(zwchar *out, Json *config) {
    const zwchar *pwd = zJsonPathGetString(config, u"path.pwd");
    const zwchar *root = zJsonPathGetString(config, kRoot);
    if (!root && (!pwd || zPathIsRelative(pwd) || !resolve(out, pwd, nullptr)))
        return fail_missing(kRoot);
    if (root && !resolve(out, root, pwd)) return fail_improper(kRoot);
    if (!zPathDirExists(out)) { // the look itself leaves why there is none
        if (zPathExists(out)) errno = ENOTDIR;
        return fail_directory(kRoot);
    }
    return zJsonPathSetString(config, kRoot, out);
}

bool resolve_repos(Json *config) {
    zwchar path[Z_PATH_MAX];
    const zwchar *root = zJsonPathGetString(config, kRoot);
    const zwchar *repos = zJsonPathGetString(config, kRepos);
    if (!resolve(path, repos ? repos : u"repos", root)) return fail_improper(kRepos);
    if (!zDirMake(path, true)) return fail_directory(kRepos);
    if (!zPathDirExists(path)) return errno = ENOTDIR, fail_directory(kRepos);
    return zJsonPathSetString(config, kRepos, path);
}

// ---- The running server

constexpr std::chrono::seconds kShutdown{5}; // that another thread waits for the end

std::mutex guard; // of `running`
std::condition_variable ended;
std::atomic<Server *> running;
ServerReadyFn on_ready; // with its context
void *on_ready_context;

bool publish(Server *server) {
    const std::lock_guard lock(guard);
    if (running) return false;
    server->thread = static_cast<uint64_t>(zThreadSelf());
    server->state = kServerRunning;
    running = server;
    return true;
}

// Whoever waits for the end finds all that the server held given back.
void take_back(Owned<Server, zServerFree> server) {
    const std::lock_guard lock(guard);
    assert(running == server.get());
    server->state = kServerStopped;
    server->thread = 0;
    zAuthServerShutdown(std::exchange(server->auth, nullptr));
    server.reset();
    running = nullptr;
    ended.notify_all();
}

} // namespace

const ServerClass *zServerClass(const zwchar *name) {
    return name && zStrcasesameW(name, u"http") ? zHttpServerClass() : nullptr;
}

bool zServerInit(Server *server, const Json *config) {
    if (!server || !config) return fail_args();
    assert(server->table && !server->auth);
    server->config = zJsonDup(config);
    server->state = kServerNew;
    if (!server->config) return fail_memory();
    zwchar root[Z_PATH_MAX];
    if (resolve_root(root, server->config) && resolve_repos(server->config)) return true;
    zServerCleanup(server);
    return false;
}

void zServerCleanup(Server *server) {
    if (!server) return;
    zJsonFree(std::exchange(server->config, nullptr));
    server->table = nullptr;
    server->state = kServerNew;
}

Server *zServerNew(const Json *config) {
    Json *tree = const_cast<Json *>(config); // read only
    const zwchar *schema = tree ? zJsonPathGetString(tree, u"schema") : nullptr;
    if (!schema) return fail_missing(u"schema");
    if (!zJsonPathExists(tree, schema)) return fail_missing(schema);
    const ServerClass *kind = zServerClass(schema);
    if (!kind) return fail_improper(schema);
    return kind->New(config, schema);
}

void zServerFree(Server *server) {
    if (server && server->table) server->table->Free(server);
}

bool zServerLoop(Server *server) {
    return server && server->table ? server->table->Loop(server) : fail_args();
}

const zwchar *zServerName(Server *server) {
    return server && server->table ? server->table->Name() : fail_args();
}
const zwchar *zServerVersion(Server *server) {
    return server && server->table ? server->table->Version() : fail_args();
}

// ---- The service of a process

bool zServerStartup(const Json *config) {
    if (!config) return fail_args();
    if (running) return fail_os(EALREADY);
    const OwnSettingsOnly settings;
    Owned<Server, zServerFree> server(zServerNew(config));
    if (!server) return false;
    server->auth = zAuthServerStart();
    if (!server->auth) return false;
    if (!publish(server.get())) { // another thread was faster
        zAuthServerShutdown(std::exchange(server->auth, nullptr));
        return fail_os(EALREADY);
    }
    const bool served = zServerLoop(server.get());
    const KeptFailure kept;
    take_back(std::move(server));
    return served;
}

void zServerOnReady(ServerReadyFn ready, void *context) {
    on_ready = ready;
    on_ready_context = context;
}

void zev::tell_ready(const Server *server, uint32_t port) {
    if (on_ready && server == running) on_ready(port, on_ready_context);
}

// Under the lock nobody ends the server meanwhile.
bool zServerReload() {
    const std::lock_guard lock(guard);
    const Server *server = running;
    return !server || reload(server);
}

bool zServerShutdown() {
    std::unique_lock lock(guard);
    Server *server = running;
    if (!server) return true;
    server->state = kServerStopping;
    if (!server->table->Stop(server)) return false;
    if (server->thread == static_cast<uint64_t>(zThreadSelf())) return true;
    if (ended.wait_for(lock, kShutdown, [&] { return running != server; })) return true;
    return fail_os(EBUSY);
}

AuthTable *zServerAuth() {
    Server *server = running;
    return server ? server->auth : fail_none();
}

Json *zServerConfig() {
    Server *server = running;
    return server ? server->config : fail_none();
}
