// Diff scene: two versions of a drawing as scenes, and for each shape which change it shows.
//
// The newer version is drawn as a whole, of the older one only what changed. A pure function of
// the rows.
#pragma once

#include "picture/changes/changed_places.hpp"
#include "picture/changes/moves.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace picture {

// One entity that changed, or a block that did, in all places where it stands.
struct Mark {
    // What was carried changed as the whole drawing did; what is alike looks as before, and says
    // the same in other characters. Neither is drawn as a change.
    enum Kind : uint8_t { added, modified, removed, moved, carried, alike };
    Kind kind = modified;
    uint64_t number = 0;                   // of the entity
    uint32_t older = kNone, newer = kNone; // its places in the versions' objects
    std::string block{};                   // the block's name; empty for an entity
    Point shift{};                         // if it was moved
    uint32_t vector = kNone;               // the same for those moved by the same
    bool is_drawn() const { return kind < carried; }
    bool is_in_place = false; // the older shapes would lie under the newer ones
};

struct DiffScene {
    Scene older, newer;
    // For each shape its place in `marks`; kNone for what stayed.
    std::vector<uint32_t> older_marks, newer_marks;
    std::vector<Mark> marks;
    // Changed records that no picture shows, and those that say the same in other characters; by
    // kind, or where they are.
    std::map<std::string, uint64_t> unseen, alike;
    std::optional<WholeMove> whole; // by which the older scene was moved to compare the rest
    uint64_t stayed = 0;            // with a whole move, entities that are where they were

    Box box() const; // of both
};

// The shapes of each mark, in the order of a scene, which they lend from.
class Figures {
  public:
    Figures(const Scene &scene, const std::vector<uint32_t> &marks, size_t count);
    Figure of(size_t mark) const;

  private:
    const Scene &scene_;
    std::vector<uint32_t> starts_, shapes_;
};

// Of any space the model is taken, but where there is a change to be seen in paper space alone.
DiffScene diff_scene(const dxf::Content &older, const dxf::Content &newer,
                     const std::vector<dxf::ObjectChange> &changes,
                     SceneOptions::Space space = SceneOptions::any);

} // namespace picture
