// File: helpers over FILE, whole-file operations, shared objects, the environment.
//
// What fails raises the standard error unless told otherwise; a null argument is invalid, logged.
#ifndef ZEV_FILE_H
#define ZEV_FILE_H

#include "zev/base.h"

#include <stdio.h>

ZEV_BEGIN

// Opens with the letters of fopen, and S sequential, R random, D without a name from the start;
// "ccs=" is overlooked: text is UTF-8 with plain line feeds.
ZEV_API FILE *zFileOpen(const zwchar *path, const zwchar *mode);
// Null gives true.
ZEV_API bool zFileClose(FILE *file);
// A new file in the temporary directory, opened "w+b". It stays there.
ZEV_API FILE *zFileTemp(void);

// The bytes moved, also after an error.
ZEV_API uint64_t zFileRead(FILE *file, void *buffer, uint64_t count);
ZEV_API uint64_t zFileWrite(FILE *file, const void *buffer, uint64_t count);
ZEV_API bool zFileFlush(FILE *file);

// The runtime's own, which raise nothing. Null is at its end, in error, at -1. A rewind fails, and
// leaves the file in error, when what is still buffered can't be written.
ZEV_API bool zFileEOF(FILE *file);
ZEV_API bool zFileError(FILE *file);
ZEV_API int64_t zFileTell(FILE *file);
ZEV_API bool zFileSeek(FILE *file, int64_t offset, int32_t whence);
ZEV_API bool zFileRewind(FILE *file);

// The size counts what is still buffered; 0 on failure.
ZEV_API bool zFileTruncate(FILE *file, int64_t size);
ZEV_API uint64_t zFileSize(FILE *file);

// Write finished text, wide as UTF-8, and give its length in characters of the format's own kind;
// negative when it can't be formatted, with nothing written, or not be written.
ZEV_API int32_t zFilePrintfA(FILE *file, const char *format, ...) ZEV_PRINTF(2, 3);
ZEV_API int32_t zFilePrintfW(FILE *file, const zwchar *format, ...);

// Through links.
struct stat;
ZEV_API bool zFileStatA(const char *path, struct stat *out);
ZEV_API bool zFileStatW(const zwchar *path, struct stat *out);

// ---- Whole files and trees. Copy and Move raise the system error (class 9).

// Copies with mode, time and links, making missing parents. `dst` is the new name, or a directory
// that takes the copy in. Files there are replaced, one at a time and each in one step.
ZEV_API bool zCopy(const zwchar *src, const zwchar *dst);

// Renames, across devices by a synced copy. Without `replace` an existing `dst` is a failure; with
// it a file is replaced, a directory never.
ZEV_API bool zMove(const zwchar *src, const zwchar *dst, bool replace);

// Moves a file or a whole tree to the desktop's trash; where there is none it is deleted. Raises
// nothing: `errno` says missing (ENOENT), refused (EACCES) or anything else (EIO).
ZEV_API bool zDrop(const zwchar *path);

// Takes all write permissions away, or gives the owner read and write. A mode that fits already
// isn't touched. Raises the standard error.
ZEV_API bool zChread(const zwchar *path, bool readonly);

// ---- Shared objects

// A failure raises class 9 with the loader's text: code 2 for a missing file, 8 for one that is no
// shared object.
ZEV_API void *zDllOpen(const zwchar *path);
ZEV_API bool zDllClose(void *library);
ZEV_API void *zDllSym(void *library, const char *name); // null if it is not there
ZEV_API bool zDllAtexit(void (*function)(void));

// ---- Environment. An empty value removes the variable.

// Null if it is not set; the text lies in the thread's ring.
ZEV_API const zwchar *zGetenv(const zwchar *name);
// "NAME=value"; 0, or -1 with the standard error raised.
ZEV_API int32_t zPutenv(const zwchar *assignment);
// 0, or the number of the standard error that is raised.
ZEV_API int32_t zSetenv(const zwchar *name, const zwchar *value);

ZEV_END
#endif
