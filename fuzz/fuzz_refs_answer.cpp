// A server's list of references: no entry of it makes a name that is HEAD, a branch of the copy, or
// outside of refs/.
#include "remote/rtdownload.hpp"

#include "zev/error.h"

#include <cstdlib>
#include <string_view>

using namespace zev;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const StreamPtr stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    JsonBounds bounds{limits::answer_bytes, limits::answer_nodes};
    const JsonGuard body(json_read_bounded(stream.get(), bounds));
    Json *entries = body ? json_find(body.get(), u"data.entries") : nullptr;
    const uint64_t count = entries && zJsonIsArray(entries) ? zJsonArraySize(entries) : 0;
    for (uint64_t n = 0; n < count; ++n) {
        ListedRef ref;
        if (!read_ref(zJsonArrayAt(entries, n), ref) || !may_write_ref(ref.name)) continue;
        const std::u16string_view name = ref.name;
        if (!ref.target || zStrncasesameW(ref.name, u"refs/heads/", 11)) abort();
        if (!zStrncasesameW(ref.name, u"refs/", 5) || name == u"HEAD") abort();
    }
    return 0;
}
