// Server: what every kind of server has in common: its configuration, with the directories of the
// service found and made, and its kind's operations.
#ifndef ZEV_SERVER_H
#define ZEV_SERVER_H

#include "zev/base.h"

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

// For kinds of servers: the common head of a record, which its kind's table already stands in.
ZEV_API bool zServerInit(Server *server, const Json *config);
ZEV_API void zServerCleanup(Server *server);

ZEV_END
#endif
