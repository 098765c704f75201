// Parts with names, in a row, of three versions: the variables of a header, the classes.
#pragma once

#include "dxf/merge/items.hpp"

namespace dxf::merging {

// The n-th part of a name has the number n.
struct NamedPart {
    std::pair<std::string, int> name;
    std::string_view bytes;
};
using NamedParts = std::vector<NamedPart>;
void number_names(NamedParts &parts);

using Bytes = std::optional<std::string_view>; // none: a version hasn't got the part

struct MergedPart {
    std::pair<std::string, int> name;
    std::string bytes;
};

// What one side did is taken, and what both did alike; of the rest `resolve` gives the part, which
// may be none. In the order of ours, with theirs' additions behind the neighbour that they had.
std::vector<MergedPart>
merge_parts(const std::array<NamedParts, 3> &versions,
            const std::function<std::optional<std::string>(const std::string &name, Bytes base,
                                                           Bytes ours, Bytes theirs)> &resolve);

} // namespace dxf::merging
