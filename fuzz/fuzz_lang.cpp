// A catalogue as read from its file: whatever text is left in it must format with the arguments
// that its key promises.
#include "common/catalogue.hpp"
#include "common/guard.hpp"
#include "zev/error.h"
#include "zev/hashmap.h"
#include "zev/json.h"
#include "zev/stream.h"
#include "zev/variant.h"

#include <cstdlib>

namespace {

using namespace zev;

// As many arguments as a tail can ask for; a pointer serves an integer's conversion too.
void format(const zwchar *text) {
    const zwchar *a = u"text";
    zwchar out[256];
    zSnprintfW(out, 256, text, a, a, a, a, a, a, a, a, a, a, a, a, a, a, a, a);
}

void walk(Json *object) {
    HashmapIter *iter = zJsonObjectNewiter(object);
    if (!iter) abort();
    for (iter->first(iter); !iter->done(iter); iter->next(iter)) {
        Variant *entry = iter->current(iter);
        Json *node = static_cast<Json *>(entry->next->value.pointer);
        if (zJsonIsObject(node)) walk(node);
        if (!zJsonIsString(node)) continue;
        if (!catalogue_fits(entry->value.wide, zJsonGetString(node))) abort();
        format(zJsonGetString(node));
    }
    iter->free(iter);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    Owned<Stream, zStreamFree> stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    Owned<Json, zJsonFree> root(zJsonReadStream(stream.get()));
    if (!root) return 0;
    catalogue_clean(root.get());
    if (zJsonIsObject(root.get())) walk(root.get());
    return 0;
}
