// Admin: the rights of a server's users.
#ifndef ZEV_ADMIN_H
#define ZEV_ADMIN_H

#include "zev/auth.h"

ZEV_BEGIN

// On a server: the bits that the request's user has on a path of the repository, by the rule of the
// path itself or of the nearest directory above it, else the repository's default. 1, which is no
// right, where nothing says anything; 0 for a user who can't prove who he is, and, class 2, logged,
// without a running server.
ZEV_API int32_t zAdminGetPrivilege(HttpRequest *request, Repository *repository,
                                   const zwchar *path);

ZEV_END
#endif
