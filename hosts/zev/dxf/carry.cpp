// The VBA project is a row of the table, named by its key; the rest lies in the manifest itself.
#include "dxf/carry.hpp"

namespace dxf {

void carry_over(Drawing *from, Drawing *to) {
    uint32_t size = 0;
    if (const void *data = zDrawingThumbnail(from, &size); data && size)
        host::check(zDrawingSetThumbnail(to, size, data));
    if (zDrawingHasVba(from)) *host::check(zDrawingVbaProject(to)) = *zDrawingVbaProject(from);
    Stream *in = host::check(zDrawingReference(from, nullptr, nullptr));
    Stream *out = host::check(zDrawingReference(to, nullptr, nullptr));
    char block[4096];
    while (uint64_t count = zStreamRead(in, block, sizeof block))
        if (zStreamWrite(out, block, count) != count) host::fail_raised();
}

} // namespace dxf
