// One value per thread, made at the thread's first use and released when it ends. The key is
// made once and lives for the process.
#pragma once

#include "zev/thread.h"

namespace zev {

// Null when memory or keys ran out, and while Make or the key's creation itself asks: these
// raise when they fail, which would come back here.
template <class T, T *(*Make)(), ReleaseFn Release> T *per_thread() {
    static Threadkey key;
    static Threadonce once = Z_THREADONCE_INIT;
    static bool usable = false;
    thread_local bool busy = false;
    if (busy) return nullptr;
    busy = true;
    zThreadonceRun(&once, [] { usable = zThreadkeyCreate(&key, Release); });
    T *value = usable ? static_cast<T *>(zThreadkeyGet(&key)) : nullptr;
    if (usable && !value && (value = Make())) zThreadkeySet(&key, value);
    busy = false;
    return value;
}

} // namespace zev
