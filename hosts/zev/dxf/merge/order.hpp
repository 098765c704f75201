// Order: where the objects of the result stand.
#pragma once

#include "dxf/merge/layout.hpp"

namespace dxf::merging {

struct Ordered {
    struct Place {
        Version version; // whose list it is of
        uint32_t place;
    };
    std::vector<Place> objects;
    std::map<std::string, uint64_t> counts; // of each run, by its name
    bool is_homeless = false;               // an object's section is not in the result
};

// The list of ours, with theirs' additions behind the neighbour that they had, in its section. What
// theirs put into another section, or gave another owner, goes there.
Ordered order_objects(Merging &merging, const std::array<Skeleton, 3> &skeletons, Version chosen);

} // namespace dxf::merging
