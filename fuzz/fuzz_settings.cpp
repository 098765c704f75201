// zev.conf: any bytes give a directory that fits its buffer, or a failure with a reason.
#include "common/guard.hpp"
#include "common/settings.hpp"
#include "zev/error.h"
#include "zev/json.h"
#include "zev/stream.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace zev;
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    Owned<Stream, zStreamFree> stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    Owned<Json, zJsonFree> conf(zJsonReadStream(stream.get()));
    zwchar appdata[Z_PATH_MAX];
    if (settings_appdata(appdata, conf.get())) {
        if (zStrlenW(appdata) >= Z_PATH_MAX) abort();
    } else if (!zErrorDetail()[0]) {
        abort();
    }
    return 0;
}
