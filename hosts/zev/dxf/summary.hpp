// Summary: the digest of a drawing that is kept as its summary block.
#pragma once

#include "dxf/reader.hpp"

namespace dxf {

// One JSON object in UTF-8: "objects", their number; "kinds" and "layers", objects by name; and,
// where the header has them, "title" and "extents", {"min": [x, y, z], "max": ...}.
std::string summarize(const Document &document);

} // namespace dxf
