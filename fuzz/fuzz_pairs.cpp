// A pair stream: each pair handed over stands in the input, one behind the other.
#include "objects/drawing/table.hpp"

#include "common/reader.hpp"

#include "zev/error.h"
#include "zev/stream.h"

#include <cstdlib>
#include <cstring>

using namespace zev;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const Owned<Stream, zStreamFree> stream{zMemStream(0, size)};
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    Reader reader({data, size});
    const auto expect = [&](Bytes part) {
        const uint32_t length = reader.u32();
        const Bytes there = reader.take(length);
        if (!reader.ok() || length != part.size()) abort();
        if (length && memcmp(there.data(), part.data(), length)) abort();
    };
    read_pairs(stream.get(), [&](Bytes key, Bytes value) {
        if (key.empty()) abort();
        expect(key);
        expect(value);
    });
    return 0;
}
