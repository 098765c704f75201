// A key list: what is read comes back byte for byte.
#include "objects/drawing/drawing.hpp"

#include "zev/error.h"

#include <cstdlib>
#include <cstring>
#include <vector>

using namespace zev;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const Owned<Stream, zStreamFree> stream{zMemStream(0, size)};
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    const Owned<Vector, zVectorFree> keys{zDrawingKeyVectorRead(stream.get())};
    if (!keys) return 0;
    const Owned<Stream, zStreamFree> back{zDrawingKeyVectorWrite(keys.get())};
    std::vector<uint8_t> bytes(size + 1);
    const uint64_t got = zStreamRead(back.get(), bytes.data(), bytes.size());
    if (got > size || memcmp(bytes.data(), data, got)) abort();
    return 0;
}
