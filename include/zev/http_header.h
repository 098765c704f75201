// HttpHeader: what requests and responses have in common, and the words of HTTP: versions, methods,
// texts of statuses. Requests and responses begin with a header, so its functions take both.
//
// Null records and missing arguments raise class 2, logged.
#ifndef ZEV_HTTP_HEADER_H
#define ZEV_HTTP_HEADER_H

#include "zev/vector.h"

ZEV_BEGIN

// Codes of versions. A message of any minor version but 1 counts as 1 when it is read; what is
// written has 0.
enum { Z_HTTP_1_1 = 0, Z_HTTP_1_OTHER = 1 };
// Codes of methods.
enum {
    Z_HTTP_DELETE = 0,
    Z_HTTP_GET = 1,
    Z_HTTP_HEAD = 2,
    Z_HTTP_POST = 3,
    Z_HTTP_PUT = 4,
    Z_HTTP_PATCH = 28
};

// Static texts; null with class 2 for another code.
ZEV_API const zwchar *zHttpVersionName(uint32_t code);
ZEV_API const zwchar *zHttpMethodName(uint32_t code);
// Any case. "PATCH" and every other text raise the standard error 135; 0xFFFFFFFF.
ZEV_API uint32_t zHttpMethodCode(const zwchar *text);
// "OK" of 200. Class 2 for a code that has none: "Internal Error" within 100 to 511, else null.
ZEV_API const zwchar *zHttpStatusMessage(int32_t code);

typedef struct HttpField {
    zwchar *name;
    zwchar *value;
} HttpField;

// Copies; either text may be null.
ZEV_API HttpField *zHttpFieldNew(const zwchar *name, const zwchar *value);
ZEV_API bool zHttpFieldInit(HttpField *field, const zwchar *name, const zwchar *value);
ZEV_API void zHttpFieldCleanup(HttpField *field);
ZEV_API void zHttpFieldFree(HttpField *field);
ZEV_API const zwchar *zHttpFieldName(const HttpField *field);
ZEV_API const zwchar *zHttpFieldValue(const HttpField *field);
// `length` units of a text that needs no terminator. A line end in any text is class 2.
ZEV_API bool zHttpFieldSetName(HttpField *field, const zwchar *text, uint64_t length);
ZEV_API bool zHttpFieldSetValue(HttpField *field, const zwchar *text, uint64_t length);
// By names, case aside; null equals everything.
ZEV_API int32_t zHttpFieldCompare(const HttpField *a, const HttpField *b);

// Its fields are read by calls only. The vector is kept in the order of names, case aside.
typedef struct HttpHeader {
    uint32_t version;
    bool alive;
    Vector fields;
} HttpHeader;

// Version 0, alive, no fields.
ZEV_API HttpHeader *zHttpHeaderNew(void);
ZEV_API bool zHttpHeaderInit(HttpHeader *header);
ZEV_API void zHttpHeaderCleanup(HttpHeader *header);
ZEV_API void zHttpHeaderFree(HttpHeader *header);
// Version 0, not alive, no fields.
ZEV_API bool zHttpHeaderReset(HttpHeader *header);

ZEV_API uint32_t zHttpHeaderVersion(const HttpHeader *header);
ZEV_API bool zHttpHeaderSetVersion(HttpHeader *header, uint32_t version);
ZEV_API bool zHttpHeaderAlive(const HttpHeader *header); // the connection outlives the exchange
ZEV_API bool zHttpHeaderSetAlive(HttpHeader *header, bool alive);

// A field by its name, case aside, or null, which is no failure; At gives its value. The field's
// name is the header's order: only its value is to be set.
ZEV_API HttpField *zHttpHeaderField(HttpHeader *header, const zwchar *name);
ZEV_API const zwchar *zHttpHeaderAt(HttpHeader *header, const zwchar *name);
// A null value removes the field. A name or value with CR, LF or NUL would be more than one field
// on the wire: class 2. Removing what isn't there succeeds.
ZEV_API bool zHttpHeaderPut(HttpHeader *header, const zwchar *name, const zwchar *value);
ZEV_API bool zHttpHeaderRemove(HttpHeader *header, const zwchar *name);

// The fields of these names.
ZEV_API const zwchar *zHttpHeaderAcceptType(HttpHeader *header); // "Accept"
ZEV_API bool zHttpHeaderSetAcceptType(HttpHeader *header, const zwchar *value);
ZEV_API const zwchar *zHttpHeaderAcceptCharset(HttpHeader *header);
ZEV_API bool zHttpHeaderSetAcceptCharset(HttpHeader *header, const zwchar *value);
ZEV_API const zwchar *zHttpHeaderAcceptLanguage(HttpHeader *header);
ZEV_API bool zHttpHeaderSetAcceptLanguage(HttpHeader *header, const zwchar *value);
ZEV_API const zwchar *zHttpHeaderAcceptEncoding(HttpHeader *header);
ZEV_API bool zHttpHeaderSetAcceptEncoding(HttpHeader *header, const zwchar *value);
ZEV_API const zwchar *zHttpHeaderContentType(HttpHeader *header);
ZEV_API bool zHttpHeaderSetContentType(HttpHeader *header, const zwchar *value);
ZEV_API const zwchar *zHttpHeaderContentCharset(HttpHeader *header); // not within Content-Type
ZEV_API bool zHttpHeaderSetContentCharset(HttpHeader *header, const zwchar *value);
ZEV_API const zwchar *zHttpHeaderContentLanguage(HttpHeader *header);
ZEV_API bool zHttpHeaderSetContentLanguage(HttpHeader *header, const zwchar *value);
ZEV_API const zwchar *zHttpHeaderContentEncoding(HttpHeader *header);
ZEV_API bool zHttpHeaderSetContentEncoding(HttpHeader *header, const zwchar *value);

// What a parser of messages tells the record that it fills, `target`. A missing slot is skipped;
// false ends the message. Texts are lent during the call, and whole.
typedef struct HttpDelegates {
    bool (*begin)(void *target);
    bool (*url)(void *target, const zwchar *url);
    bool (*version)(void *target, uint32_t code, const zwchar *text);
    bool (*alive)(void *target, bool alive);
    bool (*method)(void *target, uint32_t code, const zwchar *text);
    bool (*status)(void *target, int32_t code, const zwchar *text);
    bool (*field)(void *target, const zwchar *name, const zwchar *value);
    bool (*headers)(void *target); // all fields of the head were told
    bool (*body)(void *target, const void *bytes, uint64_t length);
    bool (*chunkBegin)(void *target);
    bool (*chunkEnd)(void *target);
    bool (*complete)(void *target);
} HttpDelegates;

ZEV_END
#endif
