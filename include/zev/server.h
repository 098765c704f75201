// Server: what every kind of server has in common: its configuration, with the directories of the
// service found and made, and its kind's operations.
#ifndef ZEV_SERVER_H
#define ZEV_SERVER_H

#include "zev/auth.h"

ZEV_BEGIN

typedef struct ServerClass {
    const zwchar *(*Name)(void);
    const zwchar *(*Version)(void);
    Server *(*New)(const Json *config, const zwchar *schema);
    void (*Free)(Server *server);
    bool (*Loop)(Server *server);
    bool (*Stop)(Server *server);
} ServerClass;

// The kind of a name, "http" in any case; null for any other.
ZEV_API const ServerClass *zServerClass(const zwchar *name);

// A server by its configuration: `schema` names the kind, and the section of its settings. The
// tree stays the caller's; the server has a copy in which path.root and path.repos are absolute,
// the second made if it is missing. Class 2 names the setting that is missing or can't be used.
ZEV_API Server *zServerNew(const Json *config);
ZEV_API void zServerFree(Server *server);
// Serves until it is stopped.
ZEV_API bool zServerLoop(Server *server);
ZEV_API const zwchar *zServerName(Server *server);
ZEV_API const zwchar *zServerVersion(Server *server);

// Runs the service by its configuration, on the calling thread, until it is shut down: makes the
// server, loads the authentication module and serves. A process runs one at most: class -1 with the
// standard error 103 while another runs.
ZEV_API bool zServerStartup(const Json *config);
// Whom zServerStartup tells, on its thread, when the service takes connections, and on which port;
// null for nobody. To be set before.
typedef void (*ServerReadyFn)(uint32_t port, void *context);
ZEV_API void zServerOnReady(ServerReadyFn ready, void *context);
// Ends the running service, from any thread; true where none runs. From another thread it waits
// five seconds at most: then the standard error 16, and the server still goes down.
ZEV_API bool zServerShutdown(void);
// Has the running service read its certificate and its key anew, from any thread: connections that
// begin from then on are shown the new one, none is dropped. False, logged, leaves those that are
// in use; true where none runs, or one without TLS.
ZEV_API bool zServerReload(void);
// Of the running server, for code on its thread; class 2, logged, where none runs.
ZEV_API AuthTable *zServerAuth(void);
ZEV_API Json *zServerConfig(void);

// Takes away what a killed service left below a directory of projects: locks and temporary files
// that are no older than the time when it began, and projects half made or half removed. Nobody
// else may serve the directory meanwhile. False, with the reason raised, if some of it stays.
ZEV_API bool zServerRecover(const zwchar *repos, const Time *since);

// Makes a repository that lies at `from`, in the same file system as the projects, the project
// OWNER/NAME, once all of it is on the disk; servers may run meanwhile. Nothing is put in the place
// of another: class 4 where an owner's or a project's name differs in case only, the standard error
// 17 for the same name, class 7 while others give names for half a second.
ZEV_API bool zServerAdopt(const zwchar *repos, const zwchar *from, const zwchar *owner,
                          const zwchar *name);

// Whether a text can be the name of an owner or of a project: 1 to 255 units and none of
//   \ < > / " : ; ? * | , = and the backtick, nor, with `strict`, @ & # $ ^ ~ %.
// The standard errors 38 for one that is too long and 22, class 2 for an empty text.
ZEV_API bool zSNValid(const zwchar *text, bool strict);

// For kinds of servers: the common head of a record, which its kind's table already stands in.
ZEV_API bool zServerInit(Server *server, const Json *config);
ZEV_API void zServerCleanup(Server *server);

ZEV_END
#endif
