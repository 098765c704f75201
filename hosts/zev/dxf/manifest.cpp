// Lists of keys are compared as they stand in the files.
#include "dxf/manifest.hpp"

#include "dxf/numbers.hpp"

#include <algorithm>
#include <bit>
#include <numeric>

namespace dxf {

uint64_t turned(uint64_t number) {
    if constexpr (std::endian::native == std::endian::big) return number;
    return __builtin_bswap64(number);
}

static KeyList list(const uint8_t *keys, uint64_t count) {
    return KeyList({reinterpret_cast<const char *>(keys), count * sizeof(RawKey)});
}

// The tag of a key that stands for none.
static bool has_project(const DrawingKey &key) {
    constexpr uint64_t kNoTag = 0xFFFFFFFF;
    return key.object == kVbaNumber && key.tag != kNoTag;
}

void Manifest::Deinit::operator()(::Manifest *manifest) const {
    zManifestDeinit(manifest);
    std::default_delete<::Manifest>()(manifest);
}

std::optional<Manifest> Manifest::read(std::string_view bytes) {
    decltype(Manifest::lent_from_) read(new ::Manifest{});
    if (!zManifestRead(read.get(), bytes.data(), bytes.size())) return {};
    Manifest manifest;
    manifest.table = read->table;
    manifest.header = raw(read->header);
    manifest.summary = raw(read->summary);
    manifest.layout = raw(read->ds);
    manifest.classes = list(read->classes, read->class_count);
    manifest.objects = list(read->objects, read->object_count);
    manifest.reference = {reinterpret_cast<const char *>(read->reference), read->reference_size};
    if (has_project(read->vba)) manifest.vba = raw(read->vba);
    manifest.lent_from_ = std::move(read);
    return manifest;
}

namespace {

std::vector<uint32_t> by_number(const KeyList &keys) {
    std::vector<uint32_t> order(keys.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        return turned(keys.object(a)) < turned(keys.object(b));
    });
    return order;
}

} // namespace

std::vector<ObjectChange> compare_objects(const KeyList &from, const KeyList &to) {
    std::vector<ObjectChange> removed;
    std::vector<std::pair<uint32_t, ObjectChange>> newer; // with their places
    const std::vector<uint32_t> left = by_number(from), right = by_number(to);
    for (size_t i = 0, j = 0; i < left.size() || j < right.size();) {
        const DrawingKey a = i < left.size() ? turned(from[left[i]]) : DrawingKey{};
        const DrawingKey b = j < right.size() ? turned(to[right[j]]) : DrawingKey{};
        const bool takes_old = j == right.size() || (i < left.size() && a.object <= b.object);
        const bool takes_new = i == left.size() || (j < right.size() && b.object <= a.object);
        if (takes_old && takes_new && a.tag != b.tag)
            newer.push_back({right[j], {ObjectChange::modified, b.object, a, b}});
        else if (takes_new && !takes_old)
            newer.push_back({right[j], {ObjectChange::added, b.object, {}, b}});
        else if (takes_old && !takes_new)
            removed.push_back({ObjectChange::removed, a.object, a, {}});
        i += takes_old, j += takes_new;
    }
    std::sort(newer.begin(), newer.end(), [](const auto &a, const auto &b) {
        return std::pair(a.second.kind, a.first) < std::pair(b.second.kind, b.first);
    });
    std::vector<ObjectChange> changes;
    for (const auto &[place, change] : newer) changes.push_back(change);
    changes.insert(changes.end(), removed.begin(), removed.end());
    return changes;
}

} // namespace dxf
