// Hashmap: ordered map from a wide-string key to a pointer, walked in key order: 16-bit unit by
// unit, so "B" comes before "a", and a shorter key before one that it begins.
//
// The map owns its copies of the keys, never the values: whoever put them in walks the map and
// releases them before Clear or Free. Null arguments give 0, null or false and raise nothing.
#ifndef ZEV_HASHMAP_H
#define ZEV_HASHMAP_H

#include "zev/base.h"

ZEV_BEGIN

// Walk: first; while not done: current, next; then free. Callers go through the slots. The entry
// that an iterator stands on stays in the map until the iterator is freed.
//
// `current` gives a Variant of type 20, the key, whose next is one of type 18, the value. Both
// lie in the iterator until the next call of current, the key's text in the map.
struct HashmapIter {
    void (*first)(HashmapIter *iter);
    void (*next)(HashmapIter *iter);
    bool (*done)(HashmapIter *iter);
    void (*free)(HashmapIter *iter);
    Variant *(*current)(HashmapIter *iter);
};

// Null with class 1 when memory runs out, as with the iterators.
ZEV_API Hashmap *zHashmapNew(void);
ZEV_API void zHashmapFree(Hashmap *map);
ZEV_API uint64_t zHashmapSize(const Hashmap *map);
ZEV_API bool zHashmapIsEmpty(const Hashmap *map);
// Adds the entry or replaces its value; false with class 1 when memory runs out.
ZEV_API bool zHashmapInsert(Hashmap *map, const zwchar *key, void *value);
// At gives null also for a stored null; Exist tells them apart.
ZEV_API void *zHashmapAt(const Hashmap *map, const zwchar *key);
ZEV_API bool zHashmapExist(const Hashmap *map, const zwchar *key);
// True also where the key was not there.
ZEV_API bool zHashmapRemove(Hashmap *map, const zwchar *key);
ZEV_API void zHashmapClear(Hashmap *map);
// Upward and downward.
ZEV_API HashmapIter *zHashmapNewiter(Hashmap *map);
ZEV_API HashmapIter *zHashmapNewriter(Hashmap *map);

ZEV_END
#endif
