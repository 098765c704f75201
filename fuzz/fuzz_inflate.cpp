// Both formats, whole and in small steps: what comes out is bounded, and ends.
#include "stream/stream.hpp"
#include "zev/error.h"
#include "zev/zip.h"

#include <cstdint>
#include <cstdlib>
#include <initializer_list>

namespace {

Stream *memory(const uint8_t *data, size_t size) {
    Stream *stream = zMemStream(0, size + 1);
    zStreamWrite(stream, data, size);
    zStreamRewind(stream);
    return stream;
}

void whole(const uint8_t *data, size_t size, const zwchar *encoding) {
    Stream *source = memory(data, size);
    constexpr uint64_t kMost = 1 << 20;
    Stream *target = zev::uncompress_stream(source, encoding, kMost);
    if (target && zStreamSize(target) > kMost) abort();
    zStreamFree(target);
    zStreamFree(source);
}

void steps(const uint8_t *data, size_t size, const zwchar *encoding) {
    Stream *source = memory(data, size), *zip = zUnzipStream(source, encoding);
    uint8_t block[17];
    for (int i = 0; i < 100000 && !zStreamEOF(zip) && !zStreamError(zip); ++i)
        if (!zStreamRead(zip, block, sizeof block)) break;
    zStreamFree(zip);
    zStreamFree(source);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    if (!started) abort();
    for (const zwchar *encoding : {u"gzip", u"deflate"}) {
        whole(data, size, encoding);
        steps(data, size, encoding);
    }
    return 0;
}
