// Path: text work on paths, and the places that the library knows.
//
// Every `dst` holds Z_PATH_MAX characters and may be the source too. What doesn't fit is cut,
// which is no failure; but whatever opens, deletes or moves a file refuses a path that fills its
// buffer, with standard error 38, since it may name another file than was meant. Both slashes
// are read; what is written has "/" only, but for zPathReplaceSlash and zPathMakeRelative. Paths
// that begin with a slash or a drive are absolute. Null arguments are invalid, logged; the tests
// of paths below take them for paths that don't exist.
#ifndef ZEV_PATH_H
#define ZEV_PATH_H

#include "zev/base.h"

ZEV_BEGIN

// Copies that only turn slashes, the last one to "\".
ZEV_API bool zPathCopy(zwchar *dst, const zwchar *src);
ZEV_API bool zPathReplaceBackslash(zwchar *dst, const zwchar *src);
ZEV_API bool zPathReplaceSlash(zwchar *dst, const zwchar *src);

// Joins with exactly one slash. Leading slashes of `more` don't count, unless `path` is empty:
// then an absolute path stays one. Build joins all arguments up to a null.
ZEV_API bool zPathAppend(zwchar *path, const zwchar *more);
ZEV_API bool zPathBuild(zwchar *dst, const zwchar *first, ...);

// Resolves "." and "..", as text and without a look at the disk. Nothing lies above a root, or
// above a relative path's beginning; a trailing slash stays.
ZEV_API bool zPathCanonicalized(zwchar *dst, const zwchar *src);

// `path` below `base`, canonical, without trailing slashes. A null base means that `path` is only
// cleaned: the current directory never matters.
ZEV_API bool zPathMakeAbsolute(zwchar *dst, const zwchar *path, const zwchar *base);

// The way from `directory` to `file`: ".\a\b" inside, "..\x" outside, "." for the same. False if
// there is none, as between two drives.
ZEV_API bool zPathMakeRelative(zwchar *dst, const zwchar *file, const zwchar *directory);

// Without the directory: what stands behind the last separator, or everything.
ZEV_API bool zPathRemoveDir(zwchar *dst, const zwchar *src);
// Without the name: cut at the last separator if something follows it; "a/" and "a" stay.
ZEV_API bool zPathRemoveName(zwchar *dst, const zwchar *src);
// Cut at the last separator, a trailing one too; false when there is nothing to cut.
ZEV_API bool zPathRemoveLast(zwchar *dst, const zwchar *src);

// The extension begins at the last dot of the name; `ext` brings its own dot. Rename adds it where
// there was none. AppendExt adds to the whole text and fails with standard error 38, logged, when
// that doesn't fit.
ZEV_API bool zPathRemoveExt(zwchar *dst, const zwchar *src);
ZEV_API bool zPathRenameExt(zwchar *dst, const zwchar *src, const zwchar *ext);
ZEV_API bool zPathAppendExt(zwchar *dst, const zwchar *src, const zwchar *ext);

// Into `path`: the part behind the last separator; the last dot of the name, or null.
ZEV_API const zwchar *zPathFindName(const zwchar *path);
ZEV_API const zwchar *zPathFindExt(const zwchar *path);

ZEV_API bool zPathIsAbsolute(const zwchar *path);
ZEV_API bool zPathIsRelative(const zwchar *path);
// Canonical, without trailing slashes and without regard to case.
ZEV_API bool zPathIsSame(const zwchar *a, const zwchar *b);

// Looks at the disk, through links; nothing is raised. A file's trailing slash is not overlooked.
// Writable means by rights and with a write bit. An empty directory holds nothing, or is missing.
ZEV_API bool zPathExists(const zwchar *path);
ZEV_API bool zPathDirExists(const zwchar *path);
ZEV_API bool zPathFileExists(const zwchar *path);
ZEV_API bool zPathFileReadable(const zwchar *path);
ZEV_API bool zPathFileWritable(const zwchar *path);
ZEV_API bool zPathDirEmpty(const zwchar *path);

// The user's settings, at most 259 characters; the temporary directory, with a last slash; the
// directory of this library's own file. False, with nothing raised, when the text doesn't fit.
ZEV_API bool zPathGetHome(zwchar *dst);
ZEV_API bool zPathGetTemp(zwchar *dst);
ZEV_API bool zPathGetBin(zwchar *dst);

// Application data, and below it the directories "conf" and "logs". Until it is set, during start
// and before other threads run, it is the parent of the library's directory. Environment
// references in `path` are expanded; a relative one lies below `base`.
ZEV_API bool zPathSetAppData(const zwchar *path, const zwchar *base);
ZEV_API bool zPathGetAppData(zwchar *dst);
ZEV_API bool zPathGetConf(zwchar *dst);
ZEV_API bool zPathGetLog(zwchar *dst);

// The running program's file name, without its directory.
ZEV_API bool zPathGetProcName(zwchar *dst);

// Makes a new empty file in `directory`, null for the temporary one, its name beginning with
// `prefix`, which may be null. The caller removes it. A failure raises the standard error.
ZEV_API bool zPathTmpnam(zwchar *dst, const zwchar *directory, const zwchar *prefix);

// Replaces %NAME% by the variable's value; what is not set stays as it is written.
ZEV_API bool zPathExpandEnvStrings(zwchar *dst, const zwchar *src);

ZEV_END
#endif
