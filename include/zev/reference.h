// Reference: names that point at objects or at other names.
//
// Lookups take full names ("refs/heads/master"), Dwim short ones as well. No such reference is
// class 3, an empty name class 2. Texts live in the thread's recycle ring.
#ifndef ZEV_REFERENCE_H
#define ZEV_REFERENCE_H

#include "zev/base.h"

ZEV_BEGIN

// The reference is lent for the call; false ends the walk.
typedef bool (*ReferenceCallback)(Reference *reference, void *context);

// Takes over a git_reference, which stays the caller's on failure.
ZEV_API Reference *zReferenceNew(void *handle, Repository *repository);
ZEV_API void zReferenceFree(Reference *reference);
ZEV_API Repository *zReferenceOwner(const Reference *reference);

// Both replace what has the name. The target need not exist: a client holds a part of the history.
ZEV_API Reference *zReferenceCreate(Repository *repository, const zwchar *name, const Oid *id);
ZEV_API Reference *zReferenceSymlink(Repository *repository, const zwchar *name,
                                     const zwchar *target);

// What HEAD leads to; null while that is unborn.
ZEV_API Reference *zReferenceHead(Repository *repository);
ZEV_API bool zReferenceSetHead(Repository *repository, const zwchar *name);
ZEV_API Reference *zReferenceLookup(Repository *repository, const zwchar *name);
ZEV_API Reference *zReferenceDwim(Repository *repository, const zwchar *name);

// False raises nothing.
ZEV_API bool zReferenceExists(Repository *repository, const zwchar *name);

// True only when the walk reached its end; a failure of libgit2 raises nothing.
ZEV_API bool zReferenceForeach(Repository *repository, ReferenceCallback callback, void *context);

// Where the reference's file lies, whether it is packed or not; lives as long as the reference.
ZEV_API const zwchar *zReferencePath(Reference *reference);
ZEV_API const zwchar *zReferenceName(const Reference *reference);
ZEV_API const zwchar *zReferenceShorthand(const Reference *reference);

// Type 1 has a target, 2 a symbolic one; asking for the other is class 2. Resolve follows symbolic
// ones to their end. Ids live as long as the reference.
ZEV_API int32_t zReferenceType(const Reference *reference);
ZEV_API const Oid *zReferenceTarget(const Reference *reference);
ZEV_API const zwchar *zReferenceSymbolic(const Reference *reference);
ZEV_API const Oid *zReferenceResolve(Reference *reference);

// The object of a type that the reference leads to.
ZEV_API Object *zReferencePeel(Reference *reference, int32_t type);

// Move the reference, from the state that the record holds only, and have it on the disk: a branch
// goes forward so. One that was moved meanwhile is libgit2's -15.
ZEV_API bool zReferenceSetTarget(Reference *reference, const Oid *id);
ZEV_API bool zReferenceSetSymbolic(Reference *reference, const zwchar *name);

// Takes the reference away with its log, from the state that the record holds only; the record
// stays to be freed. HEAD can't go.
ZEV_API bool zReferenceDelete(Reference *reference);

// By the name alone.
ZEV_API bool zReferenceIsBranch(const Reference *reference);
ZEV_API bool zReferenceIsTag(const Reference *reference);
ZEV_API bool zReferenceIsNote(const Reference *reference);
ZEV_API bool zReferenceIsRemote(const Reference *reference);

// Maps refs/heads/ to refs/remotes/ and back through the refspecs of a git_remote; any other name
// stays. `buffer` takes `length` characters with the terminator. False raises nothing: no refspec
// applies.
ZEV_API bool zReferenceXform(zwchar *buffer, uint64_t length, void *remote, const zwchar *name);

ZEV_API void zRefdbFree(void *refdb);

ZEV_END
#endif
