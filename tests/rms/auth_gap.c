// A module that leaves the last operation out.
#include "zev/auth.h"

ZEV_API int32_t zAuthSvrInit(AuthTable *table);

static int32_t done(void) { return Z_AUTH_DONE; }

int32_t zAuthSvrInit(AuthTable *table) {
    int32_t (**slots)(void) = (int32_t(**)(void))table;
    for (unsigned i = 1; i + 1 < sizeof *table / sizeof *slots; ++i) slots[i] = done;
    return 1;
}
