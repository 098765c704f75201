// Keys of a table get numbers in the order in which manifests name them first. A version is kept as
// its difference to the one that was read before it, so that a thousand versions of a drawing cost
// little more than one.
#include "objects/drawing/drawing.hpp"
#include "verify/parts.hpp"

namespace zev::verify {

namespace {

constexpr uint64_t kVba = UINT64_MAX - 3, kNoVbaTag = 0xFFFFFFFF;

bool is_none(const DrawingKey &key) { return !key.tag && !key.object; }

} // namespace

// Those of which the digest tells come first; how many they are. The summary's comes last.
size_t KeyCollector::list_keys(const Manifest &manifest, std::vector<RawKey> &keys) {
    const auto add = [&keys](const DrawingKey &key) {
        const KeyBytes bytes = key_bytes(key);
        if (!is_none(key)) memcpy(&keys.emplace_back(), bytes.data(), bytes.size());
    };
    const auto add_list = [&keys](const uint8_t *list, uint64_t count) {
        const size_t before = keys.size();
        keys.resize(before + count);
        if (count) memcpy(&keys[before], list, count * sizeof(RawKey));
    };
    keys.reserve(manifest.class_count + manifest.object_count + 4);
    add(manifest.header);
    add(manifest.ds);
    add_list(manifest.classes, manifest.class_count);
    add_list(manifest.objects, manifest.object_count);
    const size_t counted = keys.size();
    if (manifest.vba.object == kVba && manifest.vba.tag != kNoVbaTag) add(manifest.vba);
    add(manifest.summary);
    return counted;
}

uint32_t KeyCollector::number_of(Known &known, TableKeys &table, const RawKey &key, bool counted) {
    const auto next = static_cast<uint32_t>(table.keys.size());
    const auto [at, is_new] = known.numbers.try_emplace(key, next);
    if (!is_new) return at->second;
    KeyBytes bytes;
    memcpy(bytes.data(), &key, sizeof key);
    table.keys.push_back(key_from(bytes.data()));
    table.counted.push_back(counted);
    known.stamps.push_back(0);
    return next;
}

// Each key counts once, however often the manifest names it.
void KeyCollector::difference(Known &known, const std::vector<uint32_t> &numbers, Version &version,
                              uint32_t stamp) {
    for (const uint32_t number : numbers) {
        uint32_t &last = known.stamps[number];
        if (last == stamp) continue;
        if (!last) version.added.push_back(number);
        last = stamp;
        ++version.count;
    }
    for (const uint32_t number : known.last_numbers) {
        uint32_t &last = known.stamps[number];
        if (last == stamp || !last) continue;
        version.removed.push_back(number);
        last = 0;
    }
}

void KeyCollector::add(const Place &place, const Manifest &manifest) {
    Known &known = known_[manifest.table];
    TableKeys &table = tables_[manifest.table];
    std::vector<RawKey> keys;
    const size_t counted = list_keys(manifest, keys);
    std::vector<uint32_t> numbers;
    numbers.reserve(keys.size());
    if (known.numbers.empty()) known.numbers.reserve(keys.size());
    size_t at = 0; // in the version before
    const std::vector<RawKey> &last = known.last;
    for (const RawKey &key : keys) {
        const bool one_went = at + 1 < last.size() && last[at] != key && last[at + 1] == key;
        at += one_went;
        if (at < last.size() && last[at] == key) {
            numbers.push_back(known.last_numbers[at++]);
            continue;
        }
        at += at < last.size() && last[at].object == key.object; // it changed
        numbers.push_back(number_of(known, table, key, numbers.size() < counted));
    }
    Version &version = table.versions.emplace_back();
    version.place = place;
    if (!is_none(manifest.summary)) version.summary = numbers.back();
    difference(known, numbers, version, static_cast<uint32_t>(table.versions.size()));
    known.last = std::move(keys);
    known.last_numbers = std::move(numbers);
}

void KeyCollector::add_own(const Place &place, const Oid &file, const Manifest &manifest) {
    Known &known = known_[manifest.table];
    TableKeys &table = tables_[manifest.table];
    if (!known.committed) known.committed = table.keys.size();
    std::vector<RawKey> keys;
    list_keys(manifest, keys);
    OwnVersion &own = table.own.emplace_back(OwnVersion{place, file, {}});
    for (const RawKey &key : keys)
        if (const uint32_t number = number_of(known, table, key, false); number >= *known.committed)
            own.keys.push_back(number);
}

} // namespace zev::verify
