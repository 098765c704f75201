// PathSpec: which files an operation applies to, which kinds of change, and who is told.
#ifndef ZEV_PATHSPEC_H
#define ZEV_PATHSPEC_H

#include "zev/base.h"

ZEV_BEGIN

// Option bits. Z_SPEC_LEAVE << k leaves out entries of kind k (zev/status.h).
enum {
    Z_SPEC_LITERAL = 0x1,
    Z_SPEC_MUST_MATCH = 0x2,
    Z_SPEC_INDEX_ONLY = 0x4,
    Z_SPEC_NO_UNCHANGED = 0x10000,
    Z_SPEC_NO_ADDED = 0x20000,
    Z_SPEC_NO_DELETED = 0x40000,
    Z_SPEC_NO_MODIFIED = 0x80000,
    Z_SPEC_NO_RENAMED = 0x100000,
    Z_SPEC_NO_COPIED = 0x200000,
    Z_SPEC_NO_IGNORED = 0x400000,
    Z_SPEC_NO_UNTRACKED = 0x800000,
    Z_SPEC_NO_TYPECHANGE = 0x1000000,
    Z_SPEC_NO_UNREADABLE = 0x2000000,
    Z_SPEC_NO_CONFLICTED = 0x4000000,
    Z_SPEC_NO_MISSING = 0x8000000
};

ZEV_API PathSpec *zPathSpecNew(const zwchar *pattern, uint32_t options);
ZEV_API PathSpec *zPathSpecNewMulti(const zwchar *const *patterns, uint64_t count,
                                    uint32_t options);
ZEV_API PathSpec *zPathSpecDup(const PathSpec *spec);
ZEV_API bool zPathSpecCopy(PathSpec *target, const PathSpec *source);
ZEV_API void zPathSpecFree(PathSpec *spec);
ZEV_API bool zPathSpecReset(PathSpec *spec);
ZEV_API uint32_t zPathSpecOptions(const PathSpec *spec);
ZEV_API bool zPathSpecSetOptions(PathSpec *spec, uint32_t options);
ZEV_API bool zPathSpecIsOn(const PathSpec *spec, uint32_t bits);
ZEV_API bool zPathSpecIsOff(const PathSpec *spec, uint32_t bits);
ZEV_API bool zPathSpecSetOn(PathSpec *spec, uint32_t bits);
ZEV_API bool zPathSpecSetOff(PathSpec *spec, uint32_t bits);
ZEV_API bool zPathSpecAdd(PathSpec *spec, const zwchar *pattern);
ZEV_API uint64_t zPathSpecCount(const PathSpec *spec);
ZEV_API const zwchar *zPathSpecEntry(const PathSpec *spec, uint64_t index);
ZEV_API const Notify *zPathSpecNotify(const PathSpec *spec);
ZEV_API bool zPathSpecSetNotify(PathSpec *spec, const Notify *notify);
ZEV_API bool zPathSpecMatched(PathSpec *spec, const zwchar *text);
ZEV_API bool zPathSpecStrstr(const PathSpec *spec, const zwchar *text);
ZEV_API uint64_t zPathListLength(const Vector *list);
ZEV_API const zwchar *zPathListEntry(const Vector *list, uint64_t index);
ZEV_API void zPathListFree(Vector *list);

ZEV_END
#endif
