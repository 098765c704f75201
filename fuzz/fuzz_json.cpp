// JSON text: what is read once is written, and reads back as the same text, from UTF-8 and from
// wide text alike.
#include "common/json.hpp"
#include "zev/stream.h"

#include <cstdlib>
#include <cstring>

namespace {

using namespace zev;

JsonGuard read(const void *data, uint64_t size) {
    Owned<Stream, zStreamFree> stream(zMemStream(0, size));
    if (size) zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    return JsonGuard(zJsonReadStream(stream.get()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    JsonGuard tree = read(data, size);
    if (!tree) return 0;
    Wide first(zJsonWriteTextual(tree.get()));
    // A real beyond the range of a double was read as infinite, and has no text.
    if (!first) return 0;
    JsonGuard copy(zJsonDup(tree.get()));
    tree.reset();
    JsonGuard wide(zJsonReadTextual(first.get()));
    if (!wide) abort();
    Owned<Stream, zStreamFree> stream(zJsonStreamOut(copy.get()));
    const Json *again = stream ? zJsonStreamData(stream.get()) : nullptr;
    if (!again) abort();
    // Reals lose digits by the first writing only.
    Wide second(zJsonWriteTextual(wide.get())), third(zJsonWriteTextual(again));
    if (!second || !third || !zStrsameW(second.get(), third.get())) abort();
    return 0;
}
