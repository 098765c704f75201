// Authdb: what the user of a working copy may do with each path, by the rules that its server
// computed for him and that AUTHZ in the Git directory keeps. A repository without that file is
// unrestricted.
//
// A record belongs to one thread. Null arguments are class 2, logged.
#ifndef ZEV_AUTHDB_H
#define ZEV_AUTHDB_H

#include "zev/auth.h"

ZEV_BEGIN

ZEV_API const zwchar *zAuthdbName(void); // "AUTHZ"
// The file of a repository, one for all its work trees, in a buffer of Z_PATH_MAX.
ZEV_API bool zAuthdbPath(zwchar *path, Repository *repository);

// The rules as they are now, and every right where there is no file. Null for a file that can't be
// read, or holds something else, with the standard error.
ZEV_API Authdb *zAuthdbOpen(Repository *repository);
ZEV_API void zAuthdbFree(Authdb *authdb);

// No rules, and what holds without them lets everything be read; true of null, too.
ZEV_API bool zAuthdbIsEmpty(const Authdb *authdb);

// The bits of a path (zev/auth.h): those of its own rule, else of the nearest directory above it
// that has one, "/" standing above all, else the default. Case is disregarded. Keep-files have all
// bits. 0 of null. Many paths of one directory are one look-up.
ZEV_API int32_t zAuthdbEntryMode(Authdb *authdb, const zwchar *path);
ZEV_API bool zAuthdbEntryReadable(Authdb *authdb, const zwchar *path);
ZEV_API bool zAuthdbEntryWritable(Authdb *authdb, const zwchar *path);
ZEV_API bool zAuthdbEntryExportable(Authdb *authdb, const zwchar *path);

// Brings the file up to date from a project's server: `request` has the user, `url` is the
// project's. The file is replaced only when the server has other rules. False without a user, and
// when the server can't be asked or says no, which is told to `notify`; a break of the user's is
// class 6 and told to nobody.
ZEV_API bool zAuthUpdateDb(HttpRequest *request, const Notify *notify, const zwchar *url,
                           const zwchar *path);

ZEV_END
#endif
