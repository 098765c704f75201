// Changed places: which records of two versions are not the same, each as an entity of the space or
// as a part of a block, and which blocks are not the same through their parts.
#pragma once

#include "dxf/content.hpp"

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace picture {

inline constexpr uint32_t kNone = UINT32_MAX;

enum class State : uint8_t { same, added, modified, removed };

// Of one version, by the places of its records.
struct Places {
    std::vector<State> states;    // a POLYLINE counts its vertices in
    std::vector<uint32_t> blocks; // place of the BLOCK record that an entity is a part of, or kNone
};

// Names of blocks stand in capitals.
struct ChangedBlocks {
    std::unordered_set<std::string> dirty; // parts changed, of the block itself or of one in it
    // One that it inserts changed as a whole: which of the parts is not told apart.
    std::unordered_set<std::string> whole;
};

struct ChangedPlaces {
    Places older, newer;
    ChangedBlocks blocks;
};

ChangedPlaces changed_places(const dxf::Content &older, const dxf::Content &newer,
                             const std::vector<dxf::ObjectChange> &changes);

// Of an entity that shows a block, in capitals; empty for others.
std::string shown_block(std::string_view record);
std::string block_name(std::string_view record); // of a BLOCK record, as it is written

std::string capitals(std::string_view text);

} // namespace picture
