// Tcp: the transport over TCP, one event loop a record. See zev/transfer.h for each operation.
#ifndef ZEV_TCP_H
#define ZEV_TCP_H

#include "zev/transfer.h"

ZEV_BEGIN

ZEV_API const LoopClass *zTcpClass(void);
ZEV_API Loop *zTcpNew(Echo *echo, uint32_t backlog, uint64_t timeout);
ZEV_API void zTcpFree(Loop *tcp);
// Binds and listens. Class 12 (UV_EALREADY) for one that has a loop, and for an address that is
// taken or can't be used; class 9 for a host that can't be found.
ZEV_API bool zTcpListen(Loop *tcp, const zwchar *host, uint32_t port);
// Begins a connection, which zTcpOnce completes: 5 seconds are given to it.
ZEV_API bool zTcpConnect(Loop *tcp, const zwchar *host, uint32_t port);
ZEV_API bool zTcpRun(Loop *tcp);
ZEV_API bool zTcpOnce(Loop *tcp);
ZEV_API bool zTcpAlive(Loop *tcp);
ZEV_API TransferUsage *zTcpUsage(Loop *tcp);
ZEV_API bool zTcpClose(Loop *tcp);
// The port that a listening record was given, for one that asked for 0; 0 without one.
ZEV_API uint32_t zTcpPort(Loop *tcp);

ZEV_END
#endif
