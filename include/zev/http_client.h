// HttpClient: sends a request and waits for the answer, on the caller's thread. A connection that
// both ends keep alive serves the next request to the same host.
//
// Progress goes to the request's notify, at most ten times a second; the user's break is asked for
// at every piece that moves, and every second while none does.
#ifndef ZEV_HTTP_CLIENT_H
#define ZEV_HTTP_CLIENT_H

#include "zev/transfer.h"

ZEV_BEGIN

// Its fields are read by calls only.
struct HttpClient {
    Echo head;
    Loop *loop;   // from the first send on
    void *parser; // while an answer comes
    HttpRequest *request;
    HttpResponse *response;
    void *buffer; // what is being sent
    zwchar *host;
    uint32_t port;
    EchoAction state;
    Time reported; // last progress
    bool canceled;
};

ZEV_API HttpClient *zHttpClientNew(const zwchar *host, uint32_t port);
ZEV_API bool zHttpClientInit(HttpClient *client, const zwchar *host, uint32_t port);
ZEV_API void zHttpClientCleanup(HttpClient *client);
ZEV_API void zHttpClientFree(HttpClient *client);

// The answer, lent until the next send or the client's end. What the transport could not do is a
// 503 with its reason in the error record; a break is -2. A request whose connection ended without
// an answer is sent a second time, whole. Head sends a GET.
ZEV_API HttpResponse *zHttpClientSend(HttpClient *client, HttpRequest *request);
ZEV_API HttpResponse *zHttpClientGet(HttpClient *client, HttpRequest *request);
ZEV_API HttpResponse *zHttpClientHead(HttpClient *client, HttpRequest *request);
ZEV_API HttpResponse *zHttpClientPost(HttpClient *client, HttpRequest *request);
ZEV_API HttpResponse *zHttpClientPut(HttpClient *client, HttpRequest *request);
ZEV_API HttpResponse *zHttpClientDelete(HttpClient *client, HttpRequest *request);
ZEV_API HttpResponse *zHttpClientPatch(HttpClient *client, HttpRequest *request);

ZEV_API const EchoClass *zHttpClientClass(void);

ZEV_END
#endif
