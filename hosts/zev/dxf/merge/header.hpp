// Header: its variables brought together, and what they tell of the two sides.
#pragma once

#include "dxf/merge/parts.hpp"

namespace dxf::merging {

using Headers = std::array<std::string_view, 3>; // of the versions

// The first handle that is free by the header; 0 if it doesn't tell.
uint64_t handle_seed(std::string_view header);

// The side that was saved last: by its seed of handles, then by its time, then by its bytes, so
// that it is the same one whichever is called ours.
Side newer_side(const Headers &headers);

// What the texts of a drawing are written in; empty if its header doesn't tell.
std::string encoding_of(std::string_view header);

struct MergedHeader {
    std::string bytes;
    std::vector<MergeConflict> conflicts;
};

// Stamps of saving are the newer side's, the seed of handles and the extents take in both. Handles
// in variables of theirs are changed to `handles`.
MergedHeader merge_header(const Headers &headers, Side newer, std::optional<Side> others,
                          const Handles &handles);

// The header with the other side's layer, linetype or style to draw with in place of one that is
// gone.
std::string with_names_there(std::string_view header, const Headers &headers,
                             const std::function<bool(const Name &)> &is_gone);

// The header with a seed above all handles of the drawing, if it has one.
std::string with_seed_above(std::string_view header, uint64_t highest);

} // namespace dxf::merging
