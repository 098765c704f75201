// Both formats, whole and in small steps: what comes out is bounded, and ends.
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
    Stream *target = zStreamUncompress(source, encoding);
    if (target && zStreamSize(target) > (64u << 20) + 256 * size + (64u << 10)) abort();
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
