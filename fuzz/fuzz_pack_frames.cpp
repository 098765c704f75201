// The pieces of a pack on its way: what is handed over are their bytes, in order, as far as they
// are whole, and all of them when the stream is.
#include "network/rest/repos/pack_stream.hpp"

#include "common/guard.hpp"
#include "common/reader.hpp"
#include "zev/error.h"

#include <cstdlib>
#include <string>

using namespace zev;

namespace {

// False where the last piece breaks off.
bool join(Reader reader, std::string &pack) {
    while (reader.left()) {
        const uint32_t length = reader.u32();
        const auto piece = reader.take(length);
        if (!reader.ok()) return false;
        pack.append(piece.begin(), piece.end());
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const Owned<Stream, zStreamFree> stream{zMemStream(0, size)};
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    std::string pack, taken;
    const bool whole = join(Reader({data, size}), pack);
    const bool read = rest::read_pieces(stream.get(), [&](const void *bytes, uint64_t count) {
        taken.append(static_cast<const char *>(bytes), count);
        return true;
    });
    if (read != whole || taken != pack) abort();
    return 0;
}
