// The pieces of a pack on its way: what is handed over are their bytes, in order, wherever the
// stream is cut, and no more than these when it is whole.
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
    std::string pack, taken;
    const bool whole = join(Reader({data, size}), pack);
    rest::PieceReader reader;
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const size_t part = size ? data[size - 1] + 1u : 1;
    for (size_t at = 0; at < size; at += part)
        reader.add(std::string(bytes.substr(at, part)), [&](std::string_view piece) {
            taken.append(piece);
            return true;
        });
    if (reader.is_whole() != whole || !taken.starts_with(pack)) abort();
    if (whole && taken != pack) abort();
    return 0;
}
