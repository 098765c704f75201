#include "dxf/saved.hpp"

#include "dxf/normal.hpp"

#include <algorithm>

namespace dxf {

namespace {

uint64_t highest_handle(const Document &document) {
    uint64_t highest = 0;
    for (const Part &part : document.parts) highest = std::max(highest, part.handle);
    return highest;
}

bool is_same_part(std::string_view before, const Part &now, uint64_t highest) {
    if (before == now.bytes) return true;
    switch (now.kind) {
    case Kind::header:
        return is_same_header(before, now.bytes, highest);
    case Kind::literal:
        return is_same_literal(before, now.bytes);
    case Kind::object:
        return differs_by_mark(before, now.bytes);
    default:
        return false;
    }
}

} // namespace

bool differs_by_mark(std::string_view a, std::string_view b) {
    if (a == b) return true;
    const NormalRecord before(a), after(b);
    return (before.kind() == "DICTIONARYVAR" || before.kind() == "BLOCK") && before == after;
}

bool differs_by_marks(const Content &before, const Document &now) {
    const uint64_t highest = highest_handle(now);
    bool is_same = true;
    size_t place = 0;
    uint64_t most =
        1 << 16; // differences inflate to any size, that of such a file is near this one's
    for (const Part &part : now.parts) most += 2 * part.bytes.size();
    const bool is_known = visit_imported(before, most, [&](std::string_view part) {
        is_same =
            is_same && place < now.parts.size() && is_same_part(part, now.parts[place], highest);
        ++place;
    });
    return is_known && is_same && place == now.parts.size();
}

} // namespace dxf
