// Number: sizes and durations as text for people, and sorting. The texts are temporary: they lie
// in the thread's ring for the next 1,024 that are parked there.
#ifndef ZEV_NUMBER_H
#define ZEV_NUMBER_H

#include "zev/base.h"

ZEV_BEGIN

// Negative, 0 or positive; the user pointer comes back as it was given.
typedef int (*QuickSortComp)(const void *a, const void *b, void *user);

// "1023 Bytes", "1.00 KB", by powers of 1,024 up to PB.
ZEV_API const zwchar *zNumToHumanBytes(uint64_t count);
// In the catalogue's words: "0.50 second", "30.00 seconds", from a minute on parts as in
// "1 minute 30 seconds ", each with a blank behind it. A negative time counts as 0 and raises
// class 2.
ZEV_API const zwchar *zNumToHumanTime(double seconds);
ZEV_API void zQuickSort(void *base, uint64_t count, uint64_t size, QuickSortComp compare,
                        void *user);

ZEV_END
#endif
