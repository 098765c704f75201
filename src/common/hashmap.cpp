// In spite of its name a balanced tree: every walk, and with it every JSON text, goes in key
// order, 16-bit unit by unit.
#include "zev/hashmap.h"

#include "common/failure.hpp"

#include "zev/variant.h"
#include "zev/vector.h"

#include <functional>
#include <iterator>
#include <map>
#include <new>
#include <string>
#include <string_view>

namespace {

using Entries = std::map<std::u16string, void *, std::less<>>;

constexpr uint32_t kTypeKey = Z_TYPE_STRINGW + 1, kTypeValue = Z_TYPE_POINTER + 1;

} // namespace

struct Hashmap {
    Entries entries;
};

namespace zev {
namespace {

// The current entry lies in the iterator, its key in the map.
struct Walk : HashmapIter {
    Entries *entries;
    Entries::iterator forward;
    Entries::iterator reverse; // stands behind the current entry
    Variant key;
    Variant value;
};

Walk *walk(HashmapIter *iter) { return static_cast<Walk *>(iter); }

Variant *entry(Walk *walk, Entries::iterator at) {
    walk->key = {kTypeKey, {.wide = const_cast<zwchar *>(at->first.c_str())}, &walk->value};
    walk->value = {kTypeValue, {.pointer = at->second}, nullptr};
    return &walk->key;
}

void free_walk(HashmapIter *iter) { delete walk(iter); }

constexpr HashmapIter kForward = {
    .first = [](HashmapIter *i) { walk(i)->forward = walk(i)->entries->begin(); },
    .next = [](HashmapIter *i) { ++walk(i)->forward; },
    .done = [](HashmapIter *i) { return walk(i)->forward == walk(i)->entries->end(); },
    .free = free_walk,
    .current = [](HashmapIter *i) { return entry(walk(i), walk(i)->forward); },
};

constexpr HashmapIter kReverse = {
    .first = [](HashmapIter *i) { walk(i)->reverse = walk(i)->entries->end(); },
    .next = [](HashmapIter *i) { --walk(i)->reverse; },
    .done = [](HashmapIter *i) { return walk(i)->reverse == walk(i)->entries->begin(); },
    .free = free_walk,
    .current = [](HashmapIter *i) { return entry(walk(i), std::prev(walk(i)->reverse)); },
};

HashmapIter *new_walk(Hashmap *map, const HashmapIter &slots) {
    if (!map) return nullptr;
    Entries &entries = map->entries;
    auto *walk = new (std::nothrow) Walk{{slots}, &entries, entries.begin(), entries.end(), {}, {}};
    if (!walk) return fail_memory();
    return walk;
}

} // namespace
} // namespace zev

using namespace zev;

Hashmap *zHashmapNew() {
    auto *map = new (std::nothrow) Hashmap;
    if (!map) return fail_memory();
    return map;
}

void zHashmapFree(Hashmap *map) { delete map; }

uint64_t zHashmapSize(const Hashmap *map) { return map ? map->entries.size() : 0; }

bool zHashmapIsEmpty(const Hashmap *map) { return map && map->entries.empty(); }

bool zHashmapInsert(Hashmap *map, const zwchar *key, void *value) try {
    if (!map || !key) return false;
    const std::u16string_view name(key);
    auto at = map->entries.lower_bound(name);
    if (at != map->entries.end() && at->first == name)
        at->second = value;
    else
        map->entries.emplace_hint(at, name, value);
    return true;
} catch (...) {
    return fail_thrown();
}

void *zHashmapAt(const Hashmap *map, const zwchar *key) {
    if (!map || !key) return nullptr;
    auto at = map->entries.find(std::u16string_view(key));
    return at != map->entries.end() ? at->second : nullptr;
}

bool zHashmapExist(const Hashmap *map, const zwchar *key) {
    return map && key && map->entries.contains(std::u16string_view(key));
}

bool zHashmapRemove(Hashmap *map, const zwchar *key) {
    if (!map || !key) return false;
    auto at = map->entries.find(std::u16string_view(key));
    if (at != map->entries.end()) map->entries.erase(at);
    return true;
}

void zHashmapClear(Hashmap *map) {
    if (map) map->entries.clear();
}

HashmapIter *zHashmapNewiter(Hashmap *map) { return new_walk(map, kForward); }

HashmapIter *zHashmapNewriter(Hashmap *map) { return new_walk(map, kReverse); }
