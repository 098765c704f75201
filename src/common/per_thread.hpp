// One value per thread, made at the thread's first use and released when it ends. The key is
// made once and lives for the process; a start makes it before the host can have taken them all.
#pragma once

#include "zev/thread.h"

#include <atomic>
#include <mutex>

namespace zev {

template <class T, T *(*Make)(), ReleaseFn Release> class PerThread {
  public:
    // Null when memory or keys ran out, and while Make or the key's creation itself asks: these
    // raise when they fail, which would come back here.
    static T *get() {
        if (busy_) return nullptr;
        busy_ = true;
        T *value = has_key() ? static_cast<T *>(zThreadkeyGet(&key_)) : nullptr;
        if (usable_ && !value && (value = Make())) zThreadkeySet(&key_, value);
        busy_ = false;
        return value;
    }

  private:
    static bool has_key() {
        if (usable_) return true;
        const std::lock_guard lock(making_);
        return usable_ || (usable_ = zThreadkeyCreate(&key_, Release));
    }

    static inline Threadkey key_;
    static inline std::atomic<bool> usable_{false};
    static inline std::mutex making_;
    static inline thread_local bool busy_ = false;
};

} // namespace zev
