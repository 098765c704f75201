// Layer words: what changed in a drawing's layers: one that is off now is seen nowhere in a
// picture, and what lies on it has not changed.
#pragma once

#include "dxf/content.hpp"

#include <string>
#include <vector>

namespace picture {

// A sentence for each layer that is new, gone or changed, for some of very many.
std::vector<std::string> layer_notes(const dxf::Content &older, const dxf::Content &newer,
                                     const std::vector<dxf::ObjectChange> &changes);

} // namespace picture
