// PathSpec: which files an operation applies to, which kinds of change, and who is told.
//
// Patterns are paths below the work directory, with forward slashes. Case is disregarded, of all
// scripts. Without patterns, and by `.` or `./`, everything is selected.
//   as they are     `*` stands for any text, slashes too, `?` for one character; a backslash
//                   takes the next character as it is. A pattern without wildcards selects the
//                   file of that name, or the directory with all below it. All other characters,
//                   such as `[`, `#`, `!` and blanks, stand for themselves.
//   Z_SPEC_LITERAL  exactly the file of that name; one that ends in a slash, all below it.
// Where a literal pattern names a file as it is spelled, an operation looks at nothing else.
#ifndef ZEV_PATHSPEC_H
#define ZEV_PATHSPEC_H

#include "zev/base.h"

ZEV_BEGIN

// Option bits. Z_SPEC_NO_UNCHANGED << k leaves out entries of kind k (zev/status.h).
enum {
    Z_SPEC_LITERAL = 0x1,
    Z_SPEC_MUST_MATCH = 0x2, // an empty result is a failure: null, class 3
    Z_SPEC_INDEX_ONLY = 0x4, // status compares head and index only
    Z_SPEC_NO_UNCHANGED = 0x10000,
    Z_SPEC_NO_ADDED = 0x20000,
    Z_SPEC_NO_DELETED = 0x40000,
    Z_SPEC_NO_MODIFIED = 0x80000,
    Z_SPEC_NO_RENAMED = 0x100000, // and a rename shows as a delete and an add
    Z_SPEC_NO_COPIED = 0x200000,
    Z_SPEC_NO_IGNORED = 0x400000,
    Z_SPEC_NO_UNTRACKED = 0x800000,
    Z_SPEC_NO_TYPECHANGE = 0x1000000,
    Z_SPEC_NO_UNREADABLE = 0x2000000,
    Z_SPEC_NO_CONFLICTED = 0x4000000,
    Z_SPEC_NO_MISSING = 0x8000000
};

// One pattern, or null for none; many, of which null and empty ones are left out.
ZEV_API PathSpec *zPathSpecNew(const zwchar *pattern, uint32_t options);
ZEV_API PathSpec *zPathSpecNewMulti(const zwchar *const *patterns, uint64_t count,
                                    uint32_t options);

// Dup takes patterns, options and notify into a new spec. Copy appends the patterns and takes the
// others over; it stops with false at an empty pattern. Reset leaves a new spec's state.
ZEV_API PathSpec *zPathSpecDup(const PathSpec *spec);
ZEV_API bool zPathSpecCopy(PathSpec *target, const PathSpec *source);
ZEV_API void zPathSpecFree(PathSpec *spec);
ZEV_API bool zPathSpecReset(PathSpec *spec);

// IsOn: all of the bits are set, false without a spec. IsOff: none is, true without a spec.
ZEV_API uint32_t zPathSpecOptions(const PathSpec *spec);
ZEV_API bool zPathSpecSetOptions(PathSpec *spec, uint32_t options);
ZEV_API bool zPathSpecIsOn(const PathSpec *spec, uint32_t bits);
ZEV_API bool zPathSpecIsOff(const PathSpec *spec, uint32_t bits);
ZEV_API bool zPathSpecSetOn(PathSpec *spec, uint32_t bits);
ZEV_API bool zPathSpecSetOff(PathSpec *spec, uint32_t bits);

// Patterns are copied; a null or empty one is class 2, as is an index beyond the last.
ZEV_API bool zPathSpecAdd(PathSpec *spec, const zwchar *pattern);
ZEV_API uint64_t zPathSpecCount(const PathSpec *spec);
ZEV_API const zwchar *zPathSpecEntry(const PathSpec *spec, uint64_t index);

// Whom operations tell; lent to the spec, may be null.
ZEV_API const Notify *zPathSpecNotify(const PathSpec *spec);
ZEV_API bool zPathSpecSetNotify(PathSpec *spec, const Notify *notify);

// Whether the patterns select a path; whether one of them, taken as text, occurs in a text (false
// without patterns).
ZEV_API bool zPathSpecMatched(PathSpec *spec, const zwchar *text);
ZEV_API bool zPathSpecStrstr(const PathSpec *spec, const zwchar *text);

// Lists of paths, as zIndexMatch and zTreeMatch give them: vectors of wide strings.
ZEV_API uint64_t zPathListLength(const Vector *list);
ZEV_API const zwchar *zPathListEntry(const Vector *list, uint64_t index);
ZEV_API void zPathListFree(Vector *list);

ZEV_END
#endif
