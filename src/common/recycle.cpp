// A ring of pointers: each new one releases the oldest.
#include "zev/recycle.h"

#include "common/failure.hpp"
#include "common/guard.hpp"

#include <cstdlib>

namespace zev {
namespace {

constexpr uint64_t kLeast = 8;

void release(RecycleSlot slot) {
    if (slot.pointer) (slot.release ? slot.release : free)(slot.pointer);
}

} // namespace
} // namespace zev

using namespace zev;

Recycle *zRecycleNew(uint64_t capacity) {
    Malloced<Recycle> ring(static_cast<Recycle *>(calloc(1, sizeof(Recycle))));
    if (!ring) return fail_memory();
    return zRecycleInit(ring.get(), capacity) ? ring.release() : nullptr;
}

void zRecyleFree(Recycle *ring) {
    if (!ring) return;
    zRecycleCleanup(ring);
    free(ring);
}

bool zRecycleInit(Recycle *ring, uint64_t capacity) {
    if (!ring) return fail_args();
    if (capacity < kLeast) capacity = kLeast;
    *ring = {0, capacity, static_cast<RecycleSlot *>(calloc(capacity, sizeof(RecycleSlot)))};
    if (ring->slots) return true;
    ring->capacity = 0;
    return fail_memory();
}

bool zRecycleCleanup(Recycle *ring) {
    if (!ring) return fail_args();
    for (uint64_t i = 0; i < ring->capacity; ++i) release(std::exchange(ring->slots[i], {}));
    free(ring->slots);
    *ring = {};
    return true;
}

bool zRecyclePut(Recycle *ring, void *pointer, ReleaseFn release_fn) {
    if (!ring || !ring->capacity) return fail_args();
    if (!pointer) return true;
    // The slot is taken over before the old entry goes: its release may park something itself.
    RecycleSlot old = std::exchange(ring->slots[ring->head], {pointer, release_fn});
    ring->head = (ring->head + 1) % ring->capacity;
    release(old);
    return true;
}
