// Threads and per-thread values. libuv's keys know no destructors: the registry here has them, and
// each thread that set a value runs them when it ends.
#include "zev/thread.h"

#include "common/failure.hpp"
#include "system/os.hpp"

#include <map>
#include <type_traits>

#include <uv.h>

using namespace zev;

static_assert(std::is_same_v<Threadkey, uv_key_t>);
static_assert(std::is_same_v<Threadonce, uv_once_t>);
static_assert(sizeof(uv_thread_t) == sizeof(int64_t));

namespace {

// Keys with their destructors, in key order. It lives as long as the process: threads end, and
// take their values to it, when the library has long been stopped.
struct Registry {
    uv_mutex_t mutex;
    std::map<Threadkey, ReleaseFn> destructors;
};

Registry *registry() {
    static uv_once_t once = UV_ONCE_INIT;
    static Registry *only;
    uv_once(&once, [] {
        only = new Registry;
        uv_mutex_init(&only->mutex);
    });
    return only;
}

struct Locked {
    Registry *const all = registry();
    Locked() { uv_mutex_lock(&all->mutex); }
    ~Locked() { uv_mutex_unlock(&all->mutex); }
};

struct Value {
    Threadkey key;
    ReleaseFn destructor;
    void *data;
};

// The thread's next value after that of a key, which it then has no more.
Value take_value(const Threadkey *after) {
    const Locked locked;
    const auto &all = locked.all->destructors;
    for (auto at = after ? all.upper_bound(*after) : all.begin(); at != all.end(); ++at) {
        Threadkey key = at->first;
        void *data = uv_key_get(&key);
        if (data) return uv_key_set(&key, nullptr), Value{key, at->second, data};
    }
    return {};
}

// The keys below have no destructors of their own, so a thread that set a value and ends without
// zThreadCleanup is cleaned up here.
struct ThreadEnd {
    bool armed = false;
    ~ThreadEnd() {
        if (armed) zThreadCleanup();
    }
};
thread_local ThreadEnd thread_end;

bool uv_failed(int code) { return raise_uv(code); }

} // namespace

int64_t zThreadCreate(ThreadFn function, void *argument) {
    if (!function) return fail_args(), -1;
    uv_thread_t thread;
    if (int code = uv_thread_create(&thread, function, argument); code < 0)
        return uv_failed(code), -1;
    return static_cast<int64_t>(thread);
}

bool zThreadJoin(int64_t handle) {
    auto thread = static_cast<uv_thread_t>(handle);
    const int code = uv_thread_join(&thread);
    return code == 0 || uv_failed(code);
}

int64_t zThreadSelf() { return static_cast<int64_t>(uv_thread_self()); }

void zThreadonceRun(Threadonce *once, void (*function)(void)) { uv_once(once, function); }

bool zThreadInit() { return true; }
bool zThreadAtexit() { return false; }

// Without the lock a destructor runs: it may raise, which can make a key.
bool zThreadCleanup() {
    for (Value next = take_value(nullptr); next.data; next = take_value(&next.key))
        if (next.destructor) next.destructor(next.data);
    return true;
}

bool zThreadkeyCreate(Threadkey *key, ReleaseFn destructor) try {
    if (!key) return fail_args();
    if (int code = uv_key_create(key); code < 0) return uv_failed(code);
    const Locked locked;
    locked.all->destructors[*key] = destructor;
    return true;
} catch (...) {
    uv_key_delete(key);
    return fail_thrown();
}

void zThreadkeyDelete(Threadkey *key) {
    if (!key) return;
    const Locked locked;
    locked.all->destructors.erase(*key);
    uv_key_delete(key);
}

void *zThreadkeyGet(Threadkey *key) { return key ? uv_key_get(key) : nullptr; }

void zThreadkeySet(Threadkey *key, void *value) {
    if (!key) return;
    thread_end.armed = true;
    uv_key_set(key, value);
}

void zMilliSleep(uint32_t milliseconds) { os::sleep(milliseconds); }
