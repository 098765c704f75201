// Str: strings and formatted text, narrow (UTF-8 or bytes) and wide twins, and their conversion.
//
// Functions named as the C library's do what those do, whatever locale the host has set. Nothing
// here raises an error or takes null, except as said. Wide text ignores case by Unicode's simple
// folding, unit by unit, narrow text within ASCII.
#ifndef ZEV_STR_H
#define ZEV_STR_H

#include "zev/base.h"
#include <stdarg.h>

ZEV_BEGIN

// New text, on the C heap; null when memory runs out. new is zeroed and has room for `length`
// characters and a terminator; dup of null is null; ndup copies at most `count` characters, or
// all of them when count is 0.
ZEV_API char *zStrnewA(uint64_t length);
ZEV_API zwchar *zStrnewW(uint64_t length);
ZEV_API char *zStrdupA(const char *text);
ZEV_API zwchar *zStrdupW(const zwchar *text);
ZEV_API char *zStrndupA(const char *text, uint64_t count);
ZEV_API zwchar *zStrndupW(const zwchar *text, uint64_t count);
// Replace the text that `target` owns by a copy and give it; when the copy fails the old text stays
// and null comes back. upd of null stores null, nupd never does.
ZEV_API char *zStrupdA(char **target, const char *text);
ZEV_API zwchar *zStrupdW(zwchar **target, const zwchar *text);
ZEV_API char *zStrnupdA(char **target, const char *text, uint64_t count);
ZEV_API zwchar *zStrnupdW(zwchar **target, const zwchar *text, uint64_t count);
// Gives any of these back.
ZEV_API void zStrfreeA(char *text);
ZEV_API void zStrfreeW(zwchar *text);

// -1, 0 or 1, by unsigned unit. icoll is the order of lists for people: that of the environment's
// locale, case and accents aside, null equal to the empty text and before all others.
ZEV_API int32_t zStrcmpA(const char *a, const char *b);
ZEV_API int32_t zStrcmpW(const zwchar *a, const zwchar *b);
ZEV_API int32_t zStricollA(const char *a, const char *b);
ZEV_API int32_t zStricollW(const zwchar *a, const zwchar *b);
ZEV_API int32_t zStrcasecmpA(const char *a, const char *b);
ZEV_API int32_t zStrcasecmpW(const zwchar *a, const zwchar *b);
ZEV_API int32_t zStrncmpA(const char *a, const char *b, uint64_t count);
ZEV_API int32_t zStrncmpW(const zwchar *a, const zwchar *b, uint64_t count);
ZEV_API int32_t zStrncasecmpA(const char *a, const char *b, uint64_t count);
ZEV_API int32_t zStrncasecmpW(const zwchar *a, const zwchar *b, uint64_t count);
ZEV_API bool zStrsameA(const char *a, const char *b);
ZEV_API bool zStrsameW(const zwchar *a, const zwchar *b);
ZEV_API bool zStrcasesameA(const char *a, const char *b);
ZEV_API bool zStrcasesameW(const zwchar *a, const zwchar *b);
ZEV_API bool zStrnsameA(const char *a, const char *b, uint64_t count);
ZEV_API bool zStrnsameW(const zwchar *a, const zwchar *b, uint64_t count);
ZEV_API bool zStrncasesameA(const char *a, const char *b, uint64_t count);
ZEV_API bool zStrncasesameW(const zwchar *a, const zwchar *b, uint64_t count);
// valid: neither null nor empty. safe: the text, or "" for null.
ZEV_API bool zStrvalidA(const char *text);
ZEV_API bool zStrvalidW(const zwchar *text);
ZEV_API const char *zStrsafeA(const char *text);
ZEV_API const zwchar *zStrsafeW(const zwchar *text);

// In place, and give the text. trim takes the characters of `set` off the start, rtrim off the
// end; a null set is tab, carriage return, line feed and blank.
ZEV_API char *zStrtrimA(char *text, const char *set);
ZEV_API zwchar *zStrtrimW(zwchar *text, const zwchar *set);
ZEV_API char *zStrrtrimA(char *text, const char *set);
ZEV_API zwchar *zStrrtrimW(zwchar *text, const zwchar *set);
ZEV_API char *zStrrevA(char *text);
ZEV_API zwchar *zStrrevW(zwchar *text);
ZEV_API char *zStrlwrA(char *text);
ZEV_API zwchar *zStrlwrW(zwchar *text);
ZEV_API char *zStruprA(char *text);
ZEV_API zwchar *zStruprW(zwchar *text);

ZEV_API uint64_t zStrlenA(const char *text);
ZEV_API uint64_t zStrlenW(const zwchar *text);
ZEV_API uint64_t zStrnlenA(const char *text, uint64_t count);
ZEV_API uint64_t zStrnlenW(const zwchar *text, uint64_t count);
ZEV_API char *zStrcpyA(char *target, const char *source);
ZEV_API zwchar *zStrcpyW(zwchar *target, const zwchar *source);
ZEV_API char *zStrcatA(char *target, const char *source);
ZEV_API zwchar *zStrcatW(zwchar *target, const zwchar *source);
ZEV_API char *zStrncpyA(char *target, const char *source, uint64_t count);
ZEV_API zwchar *zStrncpyW(zwchar *target, const zwchar *source, uint64_t count);
ZEV_API char *zStrncatA(char *target, const char *source, uint64_t count);
ZEV_API zwchar *zStrncatW(zwchar *target, const zwchar *source, uint64_t count);
ZEV_API char *zStrchrA(const char *text, char character);
ZEV_API zwchar *zStrchrW(const zwchar *text, zwchar character);
ZEV_API char *zStrrchrA(const char *text, char character);
ZEV_API zwchar *zStrrchrW(const zwchar *text, zwchar character);
ZEV_API char *zStrstrA(const char *text, const char *part);
ZEV_API zwchar *zStrstrW(const zwchar *text, const zwchar *part);
ZEV_API char *zStrcasestrA(const char *text, const char *part);
ZEV_API zwchar *zStrcasestrW(const zwchar *text, const zwchar *part);
ZEV_API char *zStrpbrkA(const char *text, const char *set);
ZEV_API zwchar *zStrpbrkW(const zwchar *text, const zwchar *set);
// The text goes in with the first call, null with the others; `context` is the caller's.
ZEV_API char *zStrtokA(char *text, const char *set, char **context);
ZEV_API zwchar *zStrtokW(zwchar *text, const zwchar *set, zwchar **context);
// strtol is 32 bits wide, strtoll 64; both stop at their limits. A number's point is ".".
ZEV_API int32_t zStrtolA(const char *text, char **end, int32_t base);
ZEV_API int32_t zStrtolW(const zwchar *text, zwchar **end, int32_t base);
ZEV_API int64_t zStrtollA(const char *text, char **end, int32_t base);
ZEV_API int64_t zStrtollW(const zwchar *text, zwchar **end, int32_t base);
ZEV_API double zStrtodA(const char *text, char **end);
ZEV_API double zStrtodW(const zwchar *text, zwchar **end);

// The printf family. %s and %c have the format's own width, %S and %C the other one, %hs is UTF-8,
// %ls wide; I64 and I32 are known as sizes; %p is 16 digits. The result is the length: of a text
// that just fits, which then has no terminator; -1 for one that is longer, with the buffer full.
// A null buffer measures. A null text prints "(null)"; %n and unknown letters give -1. printf
// writes UTF-8 to standard output.
ZEV_API int32_t zPrintfA(const char *format, ...) ZEV_PRINTF(1, 2);
ZEV_API int32_t zPrintfW(const zwchar *format, ...);
ZEV_API int32_t zSprintfA(char *buffer, const char *format, ...) ZEV_PRINTF(2, 3);
ZEV_API int32_t zSprintfW(zwchar *buffer, const zwchar *format, ...);
ZEV_API int32_t zSnprintfA(char *buffer, uint64_t size, const char *format, ...) ZEV_PRINTF(3, 4);
ZEV_API int32_t zSnprintfW(zwchar *buffer, uint64_t size, const zwchar *format, ...);
ZEV_API int32_t zVsnprintfA(char *buffer, uint64_t size, const char *format, va_list arguments)
    ZEV_PRINTF(3, 0);
ZEV_API int32_t zVsnprintfW(zwchar *buffer, uint64_t size, const zwchar *format, va_list arguments);
// The count of conversions stored, -1 when the text ends before the first. Texts by the same
// letters.
ZEV_API int32_t zSscanfA(const char *text, const char *format, ...)
    __attribute__((format(scanf, 2, 3)));
ZEV_API int32_t zSscanfW(const zwchar *text, const zwchar *format, ...);

ZEV_API void *zMemcpy(void *target, const void *source, uint64_t count);
ZEV_API void *zMemmove(void *target, const void *source, uint64_t count);
ZEV_API void *zMemset(void *target, int32_t value, uint64_t count);
ZEV_API void zBzero(void *target, uint64_t count);
ZEV_API int32_t zMemcmp(const void *a, const void *b, uint64_t count);

// Temporary conversions, in the thread's ring for the next 1,024 that are parked there. Malformed
// UTF-8 and lone surrogates become U+FFFD. Null gives null; so does a lack of memory, class 1.
ZEV_API const char *zStrtoutf8(const zwchar *text);
ZEV_API const zwchar *zStrfromutf8(const char *text);

ZEV_END
#endif
