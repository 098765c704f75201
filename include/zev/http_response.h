// HttpResponse: what a server answers, and a client is answered. Every failure carries one form of
// body, {"error": {"code": STATUS, "message": TEXT}}, from which a client makes its message.
//
// It owns its fields and its body. Texts that are got are lent until they are set anew. Null
// records and missing arguments raise class 2, logged. A record belongs to one thread.
#ifndef ZEV_HTTP_RESPONSE_H
#define ZEV_HTTP_RESPONSE_H

#include "zev/http_header.h"

ZEV_BEGIN

// Its fields are read by calls only.
struct HttpResponse {
    HttpHeader header;
    int32_t code;
    zwchar *reason;
    Stream *body;
    zwchar *errorText; // of the last zHttpResponseStrerr
};

// Status 200, alive, no body; after a reset not alive.
ZEV_API HttpResponse *zHttpResponseNew(void);
ZEV_API bool zHttpResponseInit(HttpResponse *response);
ZEV_API bool zHttpResponseReset(HttpResponse *response);
ZEV_API void zHttpResponseCleanup(HttpResponse *response);
ZEV_API void zHttpResponseFree(HttpResponse *response);

// ---- Header. The header is the record itself.
ZEV_API HttpHeader *zHttpResponseHeader(HttpResponse *response);
ZEV_API const zwchar *zHttpResponseField(HttpResponse *response, const zwchar *name);
ZEV_API bool zHttpResponseSetField(HttpResponse *response, const zwchar *name, const zwchar *value);
ZEV_API uint32_t zHttpResponseVersion(const HttpResponse *response);
ZEV_API bool zHttpResponseSetVersion(HttpResponse *response, uint32_t version);
ZEV_API bool zHttpResponseAlive(const HttpResponse *response);
ZEV_API bool zHttpResponseSetAlive(HttpResponse *response, bool alive);
ZEV_API const zwchar *zHttpResponseContentType(HttpResponse *response);
ZEV_API bool zHttpResponseSetContentType(HttpResponse *response, const zwchar *value);
ZEV_API const zwchar *zHttpResponseContentCharset(HttpResponse *response);
ZEV_API bool zHttpResponseSetContentCharset(HttpResponse *response, const zwchar *value);
ZEV_API const zwchar *zHttpResponseContentLanguage(HttpResponse *response);
ZEV_API bool zHttpResponseSetContentLanguage(HttpResponse *response, const zwchar *value);
ZEV_API const zwchar *zHttpResponseContentEncoding(HttpResponse *response);

// ---- Status. The reason is its text where none was set.
ZEV_API int32_t zHttpResponseCode(const HttpResponse *response);
ZEV_API bool zHttpResponseSetCode(HttpResponse *response, int32_t code);
ZEV_API const zwchar *zHttpResponseReason(const HttpResponse *response);
ZEV_API bool zHttpResponseSetReason(HttpResponse *response, const zwchar *reason);
ZEV_API bool zHttpResponseOk(const HttpResponse *response);     // 200 to 299
ZEV_API bool zHttpResponseUsrbrk(const HttpResponse *response); // the user broke off: -2

// ---- Body, as a request's.
ZEV_API Stream *zHttpResponseBody(const HttpResponse *response);
ZEV_API bool zHttpResponseSetBody(HttpResponse *response, Stream *stream);
ZEV_API bool zHttpResponseSetContents(HttpResponse *response, const zwchar *type,
                                      const zwchar *charset, const zwchar *language,
                                      Stream *stream);
// By what a request accepts: gzip, else deflate, else class 2 and the body stays as it is.
ZEV_API bool zHttpResponseZipBody(HttpResponse *response, const zwchar *accepted);
ZEV_API bool zHttpResponseUnzipBody(HttpResponse *response);

// ---- New responses, null on failure. Octet takes the stream over; Json leaves the tree.
ZEV_API HttpResponse *zHttpResponseBlank(int32_t code);
ZEV_API HttpResponse *zHttpResponseJson(int32_t code, const Json *json);
ZEV_API HttpResponse *zHttpResponseOctet(int32_t code, Stream *stream);
ZEV_API HttpResponse *zHttpResponseFile(int32_t code, const zwchar *path);
// A failure with a text, cut at 511 units.
ZEV_API HttpResponse *zHttpResponseFormat(int32_t code, const zwchar *format, ...);
// A failure in the language of the request (which may be null), raised as class 16 and logged at
// the place told. The text is the key's, with its arguments, and the status's behind it; without a
// key that of the status alone.
ZEV_API HttpResponse *zHttpResponseError(const char *file, int32_t line, HttpRequest *request,
                                         int32_t code, const zwchar *key, ...);

// What the user is told of a response: "CODE: MESSAGE" of an error body, else the text of the
// status; of null that of 503. Lent until the next call on the record.
ZEV_API const zwchar *zHttpResponseStrerr(HttpResponse *response);

// How a client's parser fills a response.
ZEV_API const HttpDelegates *zHttpResponseParser(void);

ZEV_END
#endif
