// Config: settings by dotted keys, "core.autocrlf", in Git's configuration files.
//
// A null argument is class 2, logged; whatever libgit2 refuses is raised with its code, a key that
// is missing being class 3. By its result alone a missing value can't be told from a stored one.
#ifndef ZEV_CONFIG_H
#define ZEV_CONFIG_H

#include "zev/base.h"

ZEV_BEGIN

// All give what the caller frees. An empty one in memory; a picture that nothing changes; one file,
// which need not exist; the user's own settings, null with nothing raised if there are none; those
// that hold in a repository, written to its own file. The repository is lent.
ZEV_API Config *zConfigNew(void);
ZEV_API Config *zConfigDup(Config *config);
ZEV_API Config *zConfigRead(const zwchar *path);
ZEV_API Config *zConfigUser(void);
ZEV_API Config *zConfigRepo(Repository *repository);
ZEV_API void zConfigFree(Config *config);

ZEV_API bool zConfigExists(const Config *config, const zwchar *key);
ZEV_API bool zConfigRemove(Config *config, const zwchar *key);

// False, 0, 0 or null when there is no such value. The text lives in the thread's ring.
ZEV_API bool zConfigGetBool(const Config *config, const zwchar *key);
ZEV_API int32_t zConfigGetInt(const Config *config, const zwchar *key);
ZEV_API int64_t zConfigGetLarge(const Config *config, const zwchar *key);
ZEV_API const zwchar *zConfigGetString(const Config *config, const zwchar *key);

// A value that stands in the file already is not written again.
ZEV_API bool zConfigSetBool(Config *config, const zwchar *key, bool value);
ZEV_API bool zConfigSetInt(Config *config, const zwchar *key, int32_t value);
ZEV_API bool zConfigSetLarge(Config *config, const zwchar *key, int64_t value);
ZEV_API bool zConfigSetString(Config *config, const zwchar *key, const zwchar *value);

ZEV_END
#endif
