// Workdir: operations on the files of a working copy, below its directory.
#ifndef ZEV_WORKDIR_H
#define ZEV_WORKDIR_H

#include "zev/base.h"

ZEV_BEGIN

// Moves a file or directory; `from` and `to` are relative to the directory `workdir`. The
// directories above the target are made, and a directory without files in its place goes. Fails
// with the system's error when there is no source, and with 17 when the target stays in the way
// and `replace` is false. A path onto itself gives false with nothing raised.
ZEV_API bool zWorkdirRename(const zwchar *workdir, const zwchar *from, const zwchar *to,
                            bool replace);

ZEV_END
#endif
