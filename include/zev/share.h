// Share: a file opened with a sharing mode; while it is open others may do what it allows.
//
// The modes bind everybody who opens through this family, in this process and in others, and end
// with their holder, also when it is killed. A null Share is invalid, logged, and gives 0, false
// or -1, but true for EOF and Error. Failures raise the standard error.
#ifndef ZEV_SHARE_H
#define ZEV_SHARE_H

#include "zev/base.h"

#include <stdio.h>

ZEV_BEGIN

// What others may do while the file is open.
enum { Z_SHARE_NONE = 0, Z_SHARE_READ = 1, Z_SHARE_WRITE = 2, Z_SHARE_ALL = 3 };

// Opens with the letters of zFileOpen. Refused by other holders, or by rights: the locked error
// (class 7) with the path; else the standard error. `errno` keeps the reason. With Z_SHARE_NONE
// and "r+" a file that any other program has open counts as held too.
ZEV_API Share *zShareOpen(const zwchar *path, const zwchar *mode, uint32_t flags);
// The same, tried five times, 100 milliseconds apart, as long as the file is locked.
ZEV_API Share *zShareWait(const zwchar *path, const zwchar *mode, uint32_t flags);
ZEV_API void zShareClose(Share *share);
ZEV_API FILE *zShareFile(Share *share); // lent

// The bytes moved, also after an error.
ZEV_API uint64_t zShareRead(Share *share, void *buffer, uint64_t count);
ZEV_API uint64_t zShareWrite(Share *share, const void *buffer, uint64_t count);
ZEV_API bool zShareFlush(Share *share);
ZEV_API bool zShareEOF(Share *share);
ZEV_API bool zShareError(Share *share);
ZEV_API int64_t zShareTell(Share *share);
ZEV_API bool zShareSeek(Share *share, int64_t offset, int32_t whence);
ZEV_API bool zShareRewind(Share *share);

// The size counts what is still buffered; 0 on failure, with nothing raised.
ZEV_API bool zShareTruncate(Share *share, int64_t size);
ZEV_API uint64_t zShareSize(Share *share);

// As zFilePrintfA and zFilePrintfW.
ZEV_API int32_t zSharePrintfA(Share *share, const char *format, ...) ZEV_PRINTF(2, 3);
ZEV_API int32_t zSharePrintfW(Share *share, const zwchar *format, ...);

ZEV_END
#endif
