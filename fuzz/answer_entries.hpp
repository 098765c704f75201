// The list in a server's answer, `data.entries`, as it is read from bytes.
#pragma once

#include "remote/remote.hpp"
#include "zev/error.h"

#include <cstddef>

namespace zev {

template <class F> void each_entry(const uint8_t *data, size_t size, F look) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const StreamPtr stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    JsonBounds bounds{limits::answer_bytes, limits::answer_nodes};
    const JsonGuard body(json_read_bounded(stream.get(), bounds));
    Json *entries = body ? json_find(body.get(), u"data.entries") : nullptr;
    const uint64_t count = entries && zJsonIsArray(entries) ? zJsonArraySize(entries) : 0;
    for (uint64_t n = 0; n < count; ++n) look(zJsonArrayAt(entries, n));
}

} // namespace zev
