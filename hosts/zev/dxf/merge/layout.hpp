// Skeleton: a layout as what stands in a file besides classes and objects, and at which places of
// it these stand, so that three of them can be held against each other, whatever their counts.
#pragma once

#include "dxf/merge/items.hpp"

namespace dxf::merging {

// A section's objects: places in the list of a version.
struct Run {
    std::string name; // the section's, or of one that is not known its first object's id
    uint32_t begin = 0, count = 0;
    bool is_known = true; // TABLES, BLOCKS, ENTITIES or OBJECTS
};

struct Skeleton {
    struct Piece {
        enum Kind : uint8_t { literal, header, classes, objects } kind;
        std::string bytes;  // of a literal; of objects the name of their run
        uint64_t count = 0; // of classes
    };
    std::vector<Piece> pieces;
    std::vector<Run> runs; // in the order of their pieces

    bool has_classes() const;
    // The run of each place.
    std::vector<uint32_t> run_at() const;
};

// Throws when the layout is damaged or not of a DXF file.
Skeleton read_skeleton(std::string_view layout, uint64_t classes, const std::vector<Entry> &objects,
                       const std::string &name);

// Whose skeleton the result has; none if both changed it.
std::optional<Version> choose_skeleton(const std::array<Skeleton, 3> &skeletons);

// A layout with other counts: of the classes, and of the objects in each run by its name.
std::string write_skeleton(const Skeleton &skeleton, uint64_t classes,
                           const std::map<std::string, uint64_t> &objects);

} // namespace dxf::merging
