// Core of the merge: a function of three lists of keys and of the rows that they name.
#pragma once

#include "dxf/merge/items.hpp"

namespace dxf::merging {

struct Input {
    std::array<const Keys *, 3> versions; // base, ours, theirs
    std::string name;                     // for messages
    const std::map<uint64_t, Side> &decided;
    std::optional<Side> others; // whatever isn't decided
    std::optional<Side> header{}, classes{}, layout{};
};

// Loads into `rows` what differs. Throws when that is damaged, or not what was imported.
Merge merge_versions(const Input &input, Rows &rows);

} // namespace dxf::merging
