// Recovery: index, HEAD and branch go back to what a process found them as that died half-way.
#ifndef ZEV_RECOVERY_H
#define ZEV_RECOVERY_H

#include "zev/base.h"

ZEV_BEGIN

enum {
    Z_RECOVERY_NOTHING = 0, // nobody died, or one is still at work
    Z_RECOVERY_PUT_BACK,
    Z_RECOVERY_GONE_ON // somebody has gone on from what the process left, which stays so
};

// To be called before a command changes something. False, with the reason raised, when what was to
// be put back could not be.
ZEV_API bool zRepositoryRecover(int32_t *outcome, Repository *repository);

ZEV_END
#endif
