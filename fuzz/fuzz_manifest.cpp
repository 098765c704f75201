// Keys of a foreign .dwx file lie within its bytes, and two versions of it can be compared; so can
// any two records.
#include "dxf/fields.hpp"
#include "dxf/history.hpp"

#include <cstdlib>

namespace {

void compare_keys(const dxf::KeyList &from, const dxf::KeyList &to) {
    uint64_t added = 0, removed = 0;
    for (const dxf::ObjectChange &change : dxf::compare_objects(from, to)) {
        added += change.kind == dxf::ObjectChange::added;
        removed += change.kind == dxf::ObjectChange::removed;
    }
    if (from.size() + added != to.size() + removed) abort();
    dxf::Settler settler(to);
    settler.compare(from, 0);
    settler.compare(dxf::KeyList(), 1);
    if (!settler.done()) abort();
}

void compare_records(std::string_view from, std::string_view to) {
    const auto a = dxf::split_fields(from), b = dxf::split_fields(to);
    size_t before = a.size(), now = b.size();
    for (const dxf::FieldChange &change : dxf::compare_fields(from, to)) {
        before -= !change.to, now -= !change.from;
        if (!change.from && !change.to) abort();
    }
    if (before != now) abort(); // what is left on both sides goes in pairs
    dxf::record_layer(from);
}

} // namespace

// Two versions, the first one's length in the first two bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    if (!started || size < 2) return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 2, size - 2);
    const size_t cut = std::min<size_t>(size_t{data[0]} << 8 | data[1], bytes.size());
    const std::string_view first = bytes.substr(0, cut), second = bytes.substr(cut);
    compare_records(first, second);
    const auto from = dxf::Manifest::read(first), to = dxf::Manifest::read(second);
    if (from) compare_keys(from->objects, from->classes);
    if (from && to) compare_keys(from->objects, to->objects);
    return 0;
}
