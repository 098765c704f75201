// HttpRequest: one record for both ends. A client fills and sends it, and it may be sent again; a
// server's parser fills one for each message.
//
// It owns its URI, its fields and its body, and at a client the connection that it is sent over.
// Texts that are got are lent until they are set anew. Null records and missing arguments raise
// class 2, logged. A record belongs to one thread.
#ifndef ZEV_HTTP_REQUEST_H
#define ZEV_HTTP_REQUEST_H

#include "zev/http_header.h"
#include "zev/uri.h"

ZEV_BEGIN

// Its fields are read by calls only.
struct HttpRequest {
    HttpHeader header;
    uint32_t method;
    Uri uri; // the captures of a route join its query
    Stream *body;
    HttpClient *client; // from the first send on
    uint64_t timeout;   // milliseconds
    const Notify *notify;
    bool usrbrk;
};

// A timeout of 30,000 milliseconds, alive, no method yet. The URL may be null.
ZEV_API HttpRequest *zHttpRequestNew(const zwchar *url);
ZEV_API bool zHttpRequestInit(HttpRequest *request, const zwchar *url);
ZEV_API void zHttpRequestCleanup(HttpRequest *request);
ZEV_API void zHttpRequestFree(HttpRequest *request);
// For the next message to the same place: method GET; path, query, fragment, body and every field
// but those of the account go. Schema, host, port, timeout, notify and connection stay.
ZEV_API bool zHttpRequestReset(HttpRequest *request);

// ---- Header. The header is the record itself.
ZEV_API HttpHeader *zHttpRequestHeader(HttpRequest *request);
ZEV_API const zwchar *zHttpRequestField(HttpRequest *request, const zwchar *name);
ZEV_API bool zHttpRequestSetField(HttpRequest *request, const zwchar *name, const zwchar *value);
ZEV_API uint32_t zHttpRequestVersion(const HttpRequest *request); // 0xFFFFFFFF on failure
ZEV_API bool zHttpRequestSetVersion(HttpRequest *request, uint32_t version);
ZEV_API bool zHttpRequestKeepAlive(const HttpRequest *request);
ZEV_API bool zHttpRequestSetKeepAlive(HttpRequest *request, bool alive);

// ---- URI, see zev/uri.h. A text that is none counts as a host with a port, or without one; one
// of Z_URL_MAX units or more is class 2, as is a path.
ZEV_API const zwchar *zHttpRequestUrl(HttpRequest *request);
ZEV_API bool zHttpRequestSetUrl(HttpRequest *request, const zwchar *url);
ZEV_API const zwchar *zHttpRequestHost(const HttpRequest *request);
ZEV_API bool zHttpRequestSetHost(HttpRequest *request, const zwchar *host);
ZEV_API uint32_t zHttpRequestPort(const HttpRequest *request);
ZEV_API bool zHttpRequestSetPort(HttpRequest *request, uint32_t port);
ZEV_API const zwchar *zHttpRequestPath(const HttpRequest *request);
ZEV_API bool zHttpRequestSetPath(HttpRequest *request, const zwchar *path);
ZEV_API bool zHttpRequestAppendPath(HttpRequest *request, const zwchar *path);
ZEV_API bool zHttpRequestCatchPath(HttpRequest *request, const zwchar *pattern);
ZEV_API const zwchar *zHttpRequestQuery(const HttpRequest *request, const zwchar *key);
ZEV_API bool zHttpRequestParseQuery(HttpRequest *request, const zwchar *text);
ZEV_API bool zHttpRequestSetQuery(HttpRequest *request, const zwchar *key, const zwchar *value);
ZEV_API bool zHttpRequestRemoveQuery(HttpRequest *request, const zwchar *key);
ZEV_API bool zHttpRequestClearQuery(HttpRequest *request);

// ---- Other fields of the record
ZEV_API uint64_t zHttpRequestTimeout(const HttpRequest *request); // milliseconds
ZEV_API bool zHttpRequestSetTimeout(HttpRequest *request, uint64_t milliseconds);
ZEV_API uint32_t zHttpRequestMethod(const HttpRequest *request); // 0xFFFFFFFF on failure
ZEV_API bool zHttpRequestSetMethod(HttpRequest *request, uint32_t method);
// Lent to the request; told of progress and asked for a break while it is sent.
ZEV_API const Notify *zHttpRequestNotify(const HttpRequest *request);
ZEV_API bool zHttpRequestSetNotify(HttpRequest *request, const Notify *notify);
ZEV_API bool zHttpRequestUsrbrk(const HttpRequest *request); // the last send was broken off

// ---- Fields by name. The account: "X-ZEV-USER" and "X-ZEV-CODE"; a null argument of SetAccount
// and SetAccepts leaves its field alone.
ZEV_API const zwchar *zHttpRequestUser(HttpRequest *request);
ZEV_API bool zHttpRequestSetUser(HttpRequest *request, const zwchar *user);
ZEV_API const zwchar *zHttpRequestPassword(HttpRequest *request);
ZEV_API bool zHttpRequestSetPassword(HttpRequest *request, const zwchar *password);
ZEV_API bool zHttpRequestSetAccount(HttpRequest *request, const zwchar *user,
                                    const zwchar *password);
ZEV_API const zwchar *zHttpRequestAcceptType(HttpRequest *request);
ZEV_API bool zHttpRequestSetAcceptType(HttpRequest *request, const zwchar *value);
ZEV_API const zwchar *zHttpRequestAcceptCharset(HttpRequest *request);
ZEV_API bool zHttpRequestSetAcceptCharset(HttpRequest *request, const zwchar *value);
ZEV_API const zwchar *zHttpRequestAcceptLanguage(HttpRequest *request);
ZEV_API bool zHttpRequestSetAcceptLanguage(HttpRequest *request, const zwchar *value);
ZEV_API const zwchar *zHttpRequestAcceptEncoding(HttpRequest *request);
ZEV_API bool zHttpRequestSetAcceptEncoding(HttpRequest *request, const zwchar *value);
ZEV_API bool zHttpRequestSetAccepts(HttpRequest *request, const zwchar *type, const zwchar *charset,
                                    const zwchar *language);
ZEV_API const zwchar *zHttpRequestContentType(HttpRequest *request);
ZEV_API bool zHttpRequestSetContentType(HttpRequest *request, const zwchar *value);
ZEV_API const zwchar *zHttpRequestContentCharset(HttpRequest *request);
ZEV_API bool zHttpRequestSetContentCharset(HttpRequest *request, const zwchar *value);
ZEV_API const zwchar *zHttpRequestContentLanguage(HttpRequest *request);
ZEV_API bool zHttpRequestSetContentLanguage(HttpRequest *request, const zwchar *value);
ZEV_API const zwchar *zHttpRequestContentEncoding(HttpRequest *request);

// ---- Body. Set functions take the stream over and give the former one back; it is rewound.
ZEV_API Stream *zHttpRequestBody(const HttpRequest *request);
ZEV_API bool zHttpRequestSetBody(HttpRequest *request, Stream *stream);
// With the fields that describe it, where they are given; an encoding that was told goes.
ZEV_API bool zHttpRequestSetContents(HttpRequest *request, const zwchar *type,
                                     const zwchar *charset, const zwchar *language, Stream *stream);
ZEV_API bool zHttpRequestSetJson(HttpRequest *request, const Json *json);
ZEV_API bool zHttpRequestSetOctet(HttpRequest *request, Stream *stream);
ZEV_API bool zHttpRequestSetFile(HttpRequest *request, const zwchar *path);
// Compresses by gzip a body that has no encoding; decodes one that has. True where there is
// nothing to do.
ZEV_API bool zHttpRequestZipBody(HttpRequest *request);
ZEV_API bool zHttpRequestUnzipBody(HttpRequest *request);

// ---- Sending: the answer, lent until the next send or the end of the request. Failures of the
// transport come as an answer too (503, or -2 when the user broke off); null only when there is no
// host. Head sends a GET.
ZEV_API HttpResponse *zHttpRequestSend(HttpRequest *request);
ZEV_API HttpResponse *zHttpRequestGet(HttpRequest *request);
ZEV_API HttpResponse *zHttpRequestHead(HttpRequest *request);
ZEV_API HttpResponse *zHttpRequestPost(HttpRequest *request);
ZEV_API HttpResponse *zHttpRequestPut(HttpRequest *request);
ZEV_API HttpResponse *zHttpRequestDelete(HttpRequest *request);
ZEV_API HttpResponse *zHttpRequestPatch(HttpRequest *request);

// How a server's parser fills a request.
ZEV_API const HttpDelegates *zHttpRequestParser(void);

ZEV_END
#endif
