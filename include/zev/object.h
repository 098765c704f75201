// Object: an object of any type, blobs and annotated tags.
//
// A Repository outlives what was looked up through it. A prefix is an id of which `length`
// hexadecimal digits count, 4 or more. What is missing, of another type, or named by no path is
// class 3, an ambiguous prefix class 11. Texts live in the thread's recycle ring.
#ifndef ZEV_OBJECT_H
#define ZEV_OBJECT_H

#include "zev/base.h"

ZEV_BEGIN

// Type codes of objects.
enum {
    Z_OBJECT_ANY = -2,
    Z_OBJECT_BAD = -1,
    Z_OBJECT_COMMIT = 1,
    Z_OBJECT_TREE = 2,
    Z_OBJECT_BLOB = 3,
    Z_OBJECT_TAG = 4
};

// `type` is the wanted one or any. Bypath starts at what the object peels to, a commit's tree too;
// Peel follows tags, and commits to their trees.
ZEV_API Object *zObjectByid(Repository *repository, const Oid *id, int32_t type);
ZEV_API Object *zObjectByprefix(Repository *repository, const Oid *prefix, uint64_t length,
                                int32_t type);
ZEV_API Object *zObjectBypath(Object *object, const zwchar *path, int32_t type);
ZEV_API Object *zObjectPeel(Object *object, int32_t type);
ZEV_API void zObjectFree(Object *object);
ZEV_API const Oid *zObjectId(const Object *object);
ZEV_API int32_t zObjectType(const Object *object);
ZEV_API Repository *zObjectOwner(const Object *object);

// Between a type's code and its word, "any" to "tag". No such type is "bad" and -1.
ZEV_API const zwchar *zOTypeName(int32_t type);
ZEV_API int32_t zOTypeId(const zwchar *name);

ZEV_API Blob *zBlobByid(Repository *repository, const Oid *id);
ZEV_API Blob *zBlobByprefix(Repository *repository, const Oid *prefix, uint64_t length);
ZEV_API Blob *zBlobBypath(Object *object, const zwchar *path);
ZEV_API Blob *zBlobPeel(Object *object);
ZEV_API void zBlobFree(Blob *blob);
ZEV_API const Oid *zBlobId(const Blob *blob);
ZEV_API Repository *zBlobOwner(const Blob *blob);
ZEV_API uint64_t zBlobSize(const Blob *blob);
ZEV_API const void *zBlobData(const Blob *blob, uint64_t *size); // lent; `size` may be null

// Writes the bytes as they are to a file. With a mode that empties the file it is written aside and
// renamed, so that the path holds the old content or the new one. Never through a symbolic link.
ZEV_API bool zBlobExport(Blob *blob, const zwchar *path, const zwchar *mode);

// Puts the blob at a path below the work tree, through the filters that hold there (line ends and
// the like; a drawing stays as it is), and makes the directories on the way. A path that leads out
// of the tree or into .git is class 2; a directory on the way that is a symbolic link is refused.
ZEV_API bool zBlobCheckout(Blob *blob, const zwchar *path);

ZEV_API Tag *zTagByid(Repository *repository, const Oid *id);
ZEV_API Tag *zTagByprefix(Repository *repository, const Oid *prefix, uint64_t length);
ZEV_API Tag *zTagPeel(Object *object);
ZEV_API void zTagFree(Tag *tag);
ZEV_API const Oid *zTagId(const Tag *tag);
ZEV_API Repository *zTagOwner(const Tag *tag);
ZEV_API int32_t zTagTargetType(const Tag *tag);
ZEV_API const Oid *zTagTargetId(const Tag *tag);
ZEV_API const zwchar *zTagName(const Tag *tag);
ZEV_API const zwchar *zTagTagger(const Tag *tag); // the name; null and class 3 when unsigned
ZEV_API const zwchar *zTagMessage(const Tag *tag);
ZEV_API Object *zTagTarget(const Tag *tag);

ZEV_END
#endif
