// Recycle: a ring of temporary allocations; the newest push out the oldest. It belongs to the
// thread that made it. Each thread has one of its own behind zGlobalRecyclePut.
//
// A null ring raises class 2, memory that runs out class 1.
#ifndef ZEV_RECYCLE_H
#define ZEV_RECYCLE_H

#include "zev/base.h"

ZEV_BEGIN

typedef struct RecycleSlot {
    void *pointer;
    ReleaseFn release;
} RecycleSlot;

struct Recycle {
    uint64_t head;
    uint64_t capacity;
    RecycleSlot *slots;
};

// An empty ring of `capacity` slots, at least 8.
ZEV_API Recycle *zRecycleNew(uint64_t capacity);
ZEV_API void zRecyleFree(Recycle *ring);
ZEV_API bool zRecycleInit(Recycle *ring, uint64_t capacity);
// Releases all that is parked, and the slots; the record stays.
ZEV_API bool zRecycleCleanup(Recycle *ring);
// Parks an allocation, which the ring then owns, and releases the one whose slot it takes. A null
// release function means free; a null pointer does nothing. On failure the caller still owns it.
ZEV_API bool zRecyclePut(Recycle *ring, void *pointer, ReleaseFn release);

ZEV_END
#endif
