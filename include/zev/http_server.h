// HttpServer: answers HTTP on one thread. Requests are served one at a time, whatever the number of
// connections: a procedure runs to its end before a byte of its answer leaves.
#ifndef ZEV_HTTP_SERVER_H
#define ZEV_HTTP_SERVER_H

#include "zev/server.h"
#include "zev/transfer.h"

ZEV_BEGIN

// Answers a request, whose captures stand in its query; null becomes a 500.
typedef HttpResponse *(*HttpProc)(HttpServer *server, HttpRequest *request);

// ---- HttpHandle: a route's pattern and its procedure, both required.
struct HttpHandle {
    zwchar *pattern;
    HttpProc proc;
};

ZEV_API HttpHandle *zHttpHandleNew(const zwchar *pattern, HttpProc proc);
ZEV_API bool zHttpHandleInit(HttpHandle *handle, const zwchar *pattern, HttpProc proc);
ZEV_API HttpHandle *zHttpHandleDup(const HttpHandle *handle);
ZEV_API void zHttpHandleCleanup(HttpHandle *handle);
ZEV_API void zHttpHandleFree(HttpHandle *handle);
ZEV_API const zwchar *zHttpHandlePattern(const HttpHandle *handle);
ZEV_API bool zHttpHandleSetPattern(HttpHandle *handle, const zwchar *pattern);
ZEV_API HttpProc zHttpHandleProc(const HttpHandle *handle);
ZEV_API bool zHttpHandleSetProc(HttpHandle *handle, HttpProc proc);
// Whether the request's path fits; the captures then stand in its query.
ZEV_API bool zHttpHandleMatch(const HttpHandle *handle, HttpRequest *request);
ZEV_API HttpResponse *zHttpHandleCall(const HttpHandle *handle, HttpServer *server,
                                      HttpRequest *request);

// ---- HttpServer. Settings of its section: host (localhost), port (3001), maxconn (1024, the
// backlog), timeout (0, seconds of silence before a connection is cut; 0 means never).
ZEV_API HttpServer *zHttpServerNew(const Json *config, const zwchar *schema);
ZEV_API void zHttpServerFree(HttpServer *server);
ZEV_API Json *zHttpServerConfig(const HttpServer *server);
// Null unless zServerStartup runs the server.
ZEV_API AuthTable *zHttpServerAuth(const HttpServer *server);
// A copy of the handle goes behind those that are there; the first that matches answers.
ZEV_API bool zHttpServerAddHandle(HttpServer *server, const HttpHandle *handle);
ZEV_API HttpHandle *zHttpServerFindHandle(HttpServer *server, HttpRequest *request);
ZEV_API bool zHttpServerLoop(HttpServer *server);
ZEV_API bool zHttpServerStop(HttpServer *server); // from any thread
ZEV_API const ServerClass *zHttpServerClass(void);

// ---- HttpEcho: a server's end of one connection.
typedef struct HttpEcho HttpEcho;

ZEV_API HttpEcho *zHttpEchoNew(HttpServer *server);
ZEV_API bool zHttpEchoInit(HttpEcho *echo, HttpServer *server);
ZEV_API void zHttpEchoCleanup(HttpEcho *echo);
ZEV_API void zHttpEchoFree(HttpEcho *echo);
ZEV_API bool zHttpEchoReset(HttpEcho *echo); // for the next request of its connection
ZEV_API const EchoClass *zHttpEchoClass(void);

ZEV_END
#endif
