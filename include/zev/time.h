// Time: a point in time or a span, in seconds and nanoseconds.
//
// A global time is UTC. A local one is the wall clock's reading as if that were UTC, without
// summer time, so that one formatting serves both. In normal form nanoseconds lie from
// -1,000,000,000 to 1,000,000,000, both included. Functions that make a Time give `out` back.
// Null arguments are invalid, logged.
#ifndef ZEV_TIME_H
#define ZEV_TIME_H

#include "zev/base.h"

ZEV_BEGIN

ZEV_API Time *zTimeZero(Time *out);
ZEV_API Time *zTimeMake(Time *out, int64_t seconds, int64_t nanoseconds);

// Now, in steps of 100 nanoseconds.
ZEV_API Time *zTimeGlobal(Time *out);
ZEV_API Time *zTimeLocal(Time *out);
// Seconds west of UTC.
ZEV_API int64_t zTimeZone(void);
ZEV_API Time *zTimeGlobalize(Time *out, const Time *local);
ZEV_API Time *zTimeLocalize(Time *out, const Time *global);

ZEV_API bool zTimeIsZero(const Time *time);
ZEV_API bool zTimeIsEqual(const Time *a, const Time *b);
ZEV_API double zTimeDiff(const Time *a, const Time *b); // a - b in seconds

// Results have normal form; zTimeNormal changes its argument too.
ZEV_API Time *zTimeNormal(Time *out, Time *time);
ZEV_API Time *zTimeAdd(Time *out, const Time *a, const Time *b);
ZEV_API Time *zTimeSub(Time *out, const Time *a, const Time *b);
ZEV_API bool zTimeInc(Time *time, const Time *delta);
ZEV_API bool zTimeDec(Time *time, const Time *delta);

// Text by the conversions of strftime, global in English, local in the user's language. False
// when no text comes out or it doesn't fit `size` characters with its terminator.
ZEV_API bool zTimeFormatGlobal(zwchar *out, uint64_t size, const zwchar *format, int64_t seconds);
ZEV_API bool zTimeFormatLocal(zwchar *out, uint64_t size, const zwchar *format, int64_t seconds);
// The time whose wall clock reads as the text; what stands behind the format is overlooked. A
// text that doesn't match raises invalid arguments, not logged.
ZEV_API bool zTimeParseGlobal(Time *out, const zwchar *text, const zwchar *format);
ZEV_API bool zTimeParseLocal(Time *out, const zwchar *text, const zwchar *format);

ZEV_END
#endif
