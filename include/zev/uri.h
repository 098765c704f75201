// Uri: a URI taken apart, built back into text, and matched against the patterns of routes. Url:
// URI texts in a buffer.
//
// Fields hold decoded text, and zUriStringfy gives it decoded; zUriEscape makes of it what can go
// out. Texts put together here hold Z_URL_MAX characters with their terminator: a piece that
// doesn't fit raises class 5, is logged and left out, and the call goes on without it.
//
// Null records and missing arguments raise class 2 and are logged.
#ifndef ZEV_URI_H
#define ZEV_URI_H

#include "zev/base.h"

ZEV_BEGIN

// Its fields are read by calls only.
struct Uri {
    zwchar *cached; // what zUriStringfy built last; every setter drops it
    zwchar *schema;
    zwchar *host;
    zwchar *path; // begins with "/" when set
    zwchar *fragment;
    zwchar *userinfo;
    uint32_t port;
    Hashmap *query; // texts, owned; null until the first key
};

// The text may be null; one that is no URI makes New and Init fail. Init takes a record of the
// caller's, whose content doesn't matter, and Cleanup ends it. Copy replaces what `target` holds;
// a failure leaves it as it was.
ZEV_API Uri *zUriNew(const zwchar *text);
ZEV_API bool zUriInit(Uri *uri, const zwchar *text);
ZEV_API void zUriCleanup(Uri *uri);
ZEV_API void zUriFree(Uri *uri);
ZEV_API Uri *zUriDup(const Uri *uri);
ZEV_API bool zUriCopy(Uri *target, const Uri *source);

// Lent until the field is set anew; "" when it is not set, "/" for the path. Of a null record "",
// for the path too.
ZEV_API const zwchar *zUriSchema(const Uri *uri);
ZEV_API const zwchar *zUriHost(const Uri *uri);
ZEV_API const zwchar *zUriPath(const Uri *uri);
ZEV_API const zwchar *zUriFragment(const Uri *uri);
ZEV_API uint32_t zUriPort(const Uri *uri);

// Copies; null clears the field. A path is stored with single slashes, none at its end, unescaped;
// an empty one is "/". AppendPath sets what is there, a slash and the text.
ZEV_API bool zUriSetSchema(Uri *uri, const zwchar *schema);
ZEV_API bool zUriSetHost(Uri *uri, const zwchar *host);
ZEV_API bool zUriSetPath(Uri *uri, const zwchar *path);
ZEV_API bool zUriAppendPath(Uri *uri, const zwchar *path);
ZEV_API bool zUriSetFragment(Uri *uri, const zwchar *fragment);
ZEV_API bool zUriSetPort(Uri *uri, uint32_t port);

// Reads a URI, escaped or not, or a path that begins with "/". The port is the schema's unless it
// is named. A text that is no URI is class 2, not logged, and leaves the record empty.
ZEV_API bool zUriParse(Uri *uri, const zwchar *text);

// The query, by keys in their order; no value is empty. ParseQuery replaces all of it by pairs
// such as "a=1&b=2", in each of which the last "=" divides; what is no pair removes the key of
// that name. Setting a null or empty value removes the key; so does Remove, which is true also
// where there is none. zUriQuery lends the value, or gives null.
ZEV_API bool zUriParseQuery(Uri *uri, const zwchar *text);
ZEV_API const zwchar *zUriQuery(const Uri *uri, const zwchar *key);
ZEV_API bool zUriSetQuery(Uri *uri, const zwchar *key, const zwchar *value);
ZEV_API bool zUriRemoveQuery(Uri *uri, const zwchar *key);
ZEV_API bool zUriClearQuery(Uri *uri);

// The text, decoded, lent until the next change of the record. A port shows if it is not the
// schema's, an IPv6 host in brackets.
ZEV_API const zwchar *zUriStringfy(Uri *uri);

// Matches the path, from its first token that equals the pattern's first literal on, token by
// token and case aside; a token of the pattern such as ":name" captures. On success the captures
// are in the query under their names with the colon, ":base" is the path before the match, "/" for
// none, and ":other" what was left behind it, without leading slash. Captures before that literal,
// and those that the path was too short for, are absent, whatever the query had under their names.
// Only what could be the name of a file matches: no "..", no control characters, also after further
// unescaping. False, with nothing raised and the record unchanged, where it doesn't match; a URI
// without a path is class 2.
ZEV_API bool zUriCatchPath(Uri *uri, const zwchar *pattern);

// Replace the text that the pointer owns. Escape leaves letters, digits and "/:.%?#&<>@=_-" and
// makes each other byte of UTF-8 "%" and two upper-case digits; as "%" stays, nothing is escaped
// twice. A result above 18,423 characters is class 5, logged, and leaves the text as it was.
// Unescape stops at 2,048 bytes of result, class 5, logged, and true. "%00" and a "%" without two
// hexadecimal digits behind it stay as they are.
ZEV_API bool zUriEscape(zwchar **text);
ZEV_API bool zUriUnescape(zwchar **text);

// Of http, https, zev, ftp, ssh, telnet and smtp in any case; 0 for others and null.
ZEV_API uint32_t zUriDefaultPort(const zwchar *schema);

// On a buffer of Z_URL_MAX characters. Copy cuts. Append joins by one slash and normalises the
// whole; false, with the text extended but not normalised, when the result is no URI. Build copies
// the first text and appends the others up to a null, until one fails.
ZEV_API bool zUrlCopy(zwchar *target, const zwchar *source);
ZEV_API bool zUrlAppend(zwchar *target, const zwchar *part);
ZEV_API bool zUrlBuild(zwchar *target, const zwchar *first, ...);

ZEV_END
#endif
