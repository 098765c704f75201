// CheckSpec: what a checkout, an update or a reset is to do: which branch moves, to which commit,
// for which paths.
//
// A null spec is class 2, logged, unless told otherwise. Setters copy.
#ifndef ZEV_CHECKSPEC_H
#define ZEV_CHECKSPEC_H

#include "zev/base.h"

ZEV_BEGIN

enum {
    Z_CHECK_NO_LOCKS = 0x2, // the caller holds them
    Z_CHECK_FORCE = 0x4     // the copy becomes as the target; what differs goes to the trash
};

// A new one has neither branch nor target nor paths, and no options. Each argument of the others
// may be null.
ZEV_API CheckSpec *zCheckSpecNew(void);
ZEV_API CheckSpec *zCheckSpecDup(const CheckSpec *spec);
ZEV_API void zCheckSpecFree(CheckSpec *spec);
ZEV_API CheckSpec *zCheckSpecBuild(const zwchar *branch, const Oid *target, const PathSpec *paths,
                                   uint32_t options);
ZEV_API CheckSpec *zCheckSpecByref(const zwchar *branch, const PathSpec *paths);
ZEV_API CheckSpec *zCheckSpecByid(const Oid *target, const PathSpec *paths);
ZEV_API CheckSpec *zCheckSpecBypath(const PathSpec *paths);

// The branch's name, null for HEAD; the commit to reach, null for the branch's own. Lent; null
// clears.
ZEV_API const zwchar *zCheckSpecBranch(const CheckSpec *spec);
ZEV_API bool zCheckSpecSetBranch(CheckSpec *spec, const zwchar *branch);
ZEV_API const Oid *zCheckSpecTarget(const CheckSpec *spec);
ZEV_API bool zCheckSpecSetTarget(CheckSpec *spec, const Oid *target);

// The paths, lent, with their options and notify; SetPaths takes these over too, null leaves them
// and drops the patterns. An empty pattern is class 2. Without UseGlob paths are exact names.
ZEV_API PathSpec *zCheckSpecPaths(CheckSpec *spec);
ZEV_API const PathSpec *zCheckSpecPathsConst(const CheckSpec *spec);
ZEV_API bool zCheckSpecSetPaths(CheckSpec *spec, const PathSpec *paths);
ZEV_API bool zCheckSpecAddPath(CheckSpec *spec, const zwchar *path);
ZEV_API bool zCheckSpecUseGlob(CheckSpec *spec, bool use);

// IsOn: all of the bits are set; IsOff: none is.
ZEV_API uint32_t zCheckSpecOptions(const CheckSpec *spec);
ZEV_API bool zCheckSpecSetOptions(CheckSpec *spec, uint32_t options);
ZEV_API bool zCheckSpecIsOn(const CheckSpec *spec, uint32_t bits);
ZEV_API bool zCheckSpecIsOff(const CheckSpec *spec, uint32_t bits);
ZEV_API bool zCheckSpecSetOn(CheckSpec *spec, uint32_t bits);
ZEV_API bool zCheckSpecSetOff(CheckSpec *spec, uint32_t bits);
ZEV_API const Notify *zCheckSpecNotify(const CheckSpec *spec);
ZEV_API bool zCheckSpecSetNotify(CheckSpec *spec, const Notify *notify);

// For people: the first eight digits of the target, behind "branch@" if there is one; else the
// branch; else, and for null, "HEAD". Lent until the next call for this spec.
ZEV_API const zwchar *zCheckSpecStringfy(CheckSpec *spec);

ZEV_END
#endif
