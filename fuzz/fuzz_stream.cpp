// The stream encoding: each byte of the first half asks for a value of some kind, the rest is what
// the values are read from. Strings end where they say and never outrun the stream.
#include "common/guard.hpp"
#include "zev/stream.h"

#include <cstdlib>
#include <cstring>

namespace {

using namespace zev;

void read_narrow(Stream *stream) {
    Narrow text;
    const uint64_t count = zStreamRdStringA(stream, out(text));
    if (!text || count > 4 + zStreamSize(stream)) abort();
    if (!count && *text) abort();
}

void read_wide(Stream *stream) {
    Wide text;
    const uint64_t count = zStreamRdStringW(stream, out(text));
    if (!text || zStrlenW(text.get()) > count) abort();
}

void read_one(Stream *stream, uint8_t kind) {
    uint16_t u16 = 0;
    int64_t i64 = 0;
    double real = 0;
    switch (kind % 6) {
    case 0:
        read_narrow(stream);
        break;
    case 1:
        read_wide(stream);
        break;
    case 2:
        if (zStreamRdUInt16(stream, &u16) > 2) abort();
        break;
    case 3:
        if (zStreamRdInt64(stream, &i64) > 8) abort();
        break;
    case 4:
        if (zStreamRdDouble(stream, &real) > 8) abort();
        break;
    default:
        zStreamSeek(stream, static_cast<int8_t>(kind), kind % 3);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const size_t asked = size / 2;
    Owned<Stream, zStreamFree> stream(zMemStream(0, size));
    if (size > asked) zStreamWrite(stream.get(), data + asked, size - asked);
    zStreamRewind(stream.get());
    for (size_t i = 0; i < asked; ++i) read_one(stream.get(), data[i]);
    return 0;
}
