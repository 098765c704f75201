// Cleanup: brings a working copy back into a usable state after a crash, and clears away what
// doesn't belong to it.
#ifndef ZEV_CLEANUP_H
#define ZEV_CLEANUP_H

#include "zev/base.h"

ZEV_BEGIN

enum {
    Z_CLEANUP_NO_RECOVERY = 0x10000,
    Z_CLEANUP_KEEP_UNTRACKED = 0x20000,
    Z_CLEANUP_USE_TRASH =
        0x40000 // else untracked files go for good, and all of the trash with them
};

// A new one, and one that Init made, selects all untracked files and uses the trash. Ignored files
// are never selected. Deinit releases what the fields hold.
ZEV_API CleanupSpec *zCleanupSpecNew(void);
ZEV_API bool zCleanupSpecInit(CleanupSpec *spec);
ZEV_API bool zCleanupSpecDeinit(CleanupSpec *spec);
ZEV_API void zCleanupSpecFree(CleanupSpec *spec);

// The selection, lent; IsOn: all of the bits are set, IsOff: none is. A null or empty path is class
// 2, as is a null spec, logged.
ZEV_API PathSpec *zCleanupSpecPaths(CleanupSpec *spec);
ZEV_API uint32_t zCleanupSpecOptions(const CleanupSpec *spec);
ZEV_API bool zCleanupSpecSetOptions(CleanupSpec *spec, uint32_t options);
ZEV_API bool zCleanupSpecIsOn(const CleanupSpec *spec, uint32_t bits);
ZEV_API bool zCleanupSpecIsOff(const CleanupSpec *spec, uint32_t bits);
ZEV_API bool zCleanupSpecSetOn(CleanupSpec *spec, uint32_t bits);
ZEV_API bool zCleanupSpecSetOff(CleanupSpec *spec, uint32_t bits);
ZEV_API bool zCleanupSpecAdd(CleanupSpec *spec, const zwchar *path);
ZEV_API uint64_t zCleanupSpecCount(const CleanupSpec *spec);
ZEV_API const zwchar *zCleanupSpecEntry(const CleanupSpec *spec, uint64_t index);
ZEV_API const Notify *zCleanupSpecNotify(const CleanupSpec *spec);
ZEV_API bool zCleanupSpecSetNotify(CleanupSpec *spec, const Notify *notify);

// Puts back what a process that died left half changed; removes the untracked files; empties the
// trash. A null spec means all of it, with deletion for good. A file that can't be removed is told
// and passed over; any other failure leaves out the steps behind it and gives false.
ZEV_API bool zRepositoryCleanup(Repository *repository, CleanupSpec *spec);

ZEV_END
#endif
