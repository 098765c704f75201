// Carry: what a drawing has besides what comes from a DXF file, from one version to the next.
#pragma once

#include "host.hpp"

namespace dxf {

// Thumbnail, VBA project and reference data, which a host may have put into the drawing.
void carry_over(Drawing *from, Drawing *to);

} // namespace dxf
