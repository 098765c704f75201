// Thread: threads, run-once, and per-thread values with destructors.
#ifndef ZEV_THREAD_H
#define ZEV_THREAD_H

#include "zev/base.h"

ZEV_BEGIN

typedef void (*ThreadFn)(void *argument);
typedef uint32_t Threadkey;
typedef int32_t Threadonce;
#define Z_THREADONCE_INIT 0

// The thread's handle, or -1. Failures of this family raise the libuv error (class 12).
ZEV_API int64_t zThreadCreate(ThreadFn function, void *argument);
ZEV_API bool zThreadJoin(int64_t thread);
ZEV_API int64_t zThreadSelf(void);

// Runs the function at the first call for this `once`, and returns when it has run.
ZEV_API void zThreadonceRun(Threadonce *once, void (*function)(void));

ZEV_API bool zThreadInit(void);   // does nothing: true
ZEV_API bool zThreadAtexit(void); // does nothing: false

// Sets the calling thread's values to null and gives each to its key's destructor, in key order.
// A thread that set a value and ends without this does it then. A destructor must not create or
// delete a key.
ZEV_API bool zThreadCleanup(void);

// A key under which each thread has a value of its own, at first null. The destructor may be
// null. Deleting a key runs no destructor.
ZEV_API bool zThreadkeyCreate(Threadkey *key, ReleaseFn destructor);
ZEV_API void zThreadkeyDelete(Threadkey *key);
ZEV_API void *zThreadkeyGet(Threadkey *key);
ZEV_API void zThreadkeySet(Threadkey *key, void *value);

// 0 lets others run first.
ZEV_API void zMilliSleep(uint32_t milliseconds);

ZEV_END
#endif
