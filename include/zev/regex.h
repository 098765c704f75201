// Regex: whether a text matches a pattern, and what its groups caught. Patterns are PCRE2's, over
// Unicode characters; `\C` is refused, since it takes characters apart.
//
// Text and pattern may come from anywhere: a pattern above 1 KiB, one that doesn't compile, or a
// text above 32 KiB of UTF-8 is no match, and nothing is raised for it. A search that would take
// more than a bounded amount of work or memory is class 5. A null argument is class 2, logged.
#ifndef ZEV_REGEX_H
#define ZEV_REGEX_H

#include "zev/base.h"

ZEV_BEGIN

// True when the pattern matches anywhere in the text.
ZEV_API bool zRegexMatchA(const char *text, const char *pattern);
ZEV_API bool zRegexMatchW(const zwchar *text, const zwchar *pattern);

// The match list of the first match: a vector of texts, the whole match, then the pattern's groups
// in order, "" for those that took no part. Null when there is no match. It goes back through
// zMatchFree of its kind.
ZEV_API Vector *zRegexCatchA(const char *text, const char *pattern);
ZEV_API Vector *zRegexCatchW(const zwchar *text, const zwchar *pattern);

// Of a list: how many elements, and one of them, lent; an index beyond the last is class 2.
ZEV_API uint64_t zMatchCountA(const Vector *list);
ZEV_API uint64_t zMatchCountW(const Vector *list);
ZEV_API const char *zMatchResultA(const Vector *list, uint64_t index);
ZEV_API const zwchar *zMatchResultW(const Vector *list, uint64_t index);
ZEV_API void zMatchFreeA(Vector *list);
ZEV_API void zMatchFreeW(Vector *list);

ZEV_END
#endif
