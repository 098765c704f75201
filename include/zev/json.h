// Json: the tree behind all structured data, dotted paths over it, its text form.
//
// A container owns its children, and a node has one parent at most: one that has a parent can't be
// put elsewhere, and none goes below itself. Members stand in the order of their names, 16-bit unit
// by unit, each name once. A tree belongs to one thread at a time; one that was read from text and
// is not changed may be read by several.
//
// The small readers (zJsonType to zJsonParent, zJsonGet...) don't test for null. Elsewhere a null
// argument is class 2, logged, and running out of memory class 1, logged.
#ifndef ZEV_JSON_H
#define ZEV_JSON_H

#include "zev/base.h"

ZEV_BEGIN

enum {
    Z_JSON_NULL = 0,
    Z_JSON_STRING = 1,
    Z_JSON_INT = 2,
    Z_JSON_REAL = 3,
    Z_JSON_OBJECT = 4,
    Z_JSON_ARRAY = 5,
    Z_JSON_BOOLEAN = 6
};

// A node in the caller's memory begins with zJsonInit; the fields are read by calls only.
struct Json {
    Json *parent;
    int32_t type;
    uint32_t place; // in which allocation the node lies, the library's own account
    union {
        zwchar *string;
        int64_t integer;
        double real;
        void *object;
        Vector *array;
        bool boolean;
    } value;
};

// New roots. New and Init give an empty container, an empty text, zero or null.
ZEV_API Json *zJsonNew(int32_t type);
ZEV_API bool zJsonInit(Json *node, int32_t type);
// An object of name, node, name, node ... and a null; an array of nodes and a null. They take the
// nodes over, also when they fail: a null node for a name is class 2, logged.
ZEV_API Json *zJsonNewObject(const zwchar *name, ...);
ZEV_API Json *zJsonNewArray(Json *node, ...);
// An object in which the node stands at a path. On failure the node stays the caller's.
ZEV_API Json *zJsonNewPath(const zwchar *path, Json *node);
// A copy of the text, null counting as empty; Attach takes over an allocated text, and gives null
// for null.
ZEV_API Json *zJsonNewString(const zwchar *text);
ZEV_API Json *zJsonAttachString(zwchar *text);
// A string of 40 hexadecimal digits.
ZEV_API Json *zJsonNewId(const Oid *id);
ZEV_API Json *zJsonNewInt(int64_t value);
ZEV_API Json *zJsonNewReal(double value);
ZEV_API Json *zJsonNewBoolean(bool value);
ZEV_API Json *zJsonNewNull(void);
// A deep copy as a new root.
ZEV_API Json *zJsonDup(const Json *node);
// Cleanup releases the value, with all children, and leaves a null node where it stands. Free also
// takes the node out of its container and frees it. Both accept null.
ZEV_API void zJsonCleanup(Json *node);
ZEV_API void zJsonFree(Json *node);

ZEV_API int32_t zJsonType(const Json *node);
ZEV_API bool zJsonIsA(const Json *node, int32_t type);
ZEV_API bool zJsonIsNull(const Json *node);
ZEV_API bool zJsonIsInt(const Json *node);
ZEV_API bool zJsonIsReal(const Json *node);
ZEV_API bool zJsonIsString(const Json *node);
ZEV_API bool zJsonIsObject(const Json *node);
ZEV_API bool zJsonIsArray(const Json *node);
ZEV_API bool zJsonIsRoot(const Json *node);
ZEV_API Json *zJsonRoot(Json *node);
ZEV_API Json *zJsonParent(const Json *node);

// The value, converted where the type differs; none of them fails. A container counts its children
// as a number, is true when it has any, and is an empty text. A string as an integer has the base
// that its prefix tells, and like a real it stops at the limits of 64 bits. The text of a number is
// parked in the thread's ring, that of a string lent.
ZEV_API int64_t zJsonGetInt(const Json *node);
ZEV_API double zJsonGetReal(const Json *node);
ZEV_API bool zJsonGetBoolean(const Json *node);
ZEV_API const zwchar *zJsonGetString(const Json *node);
// Only from a string, else class 2, logged; a text that is no id fails like zOidFromStr.
ZEV_API bool zJsonGetId(Oid *id, const Json *node);

// Release the old value. A null text counts as empty; SetType leaves a node of the type alone.
ZEV_API bool zJsonSetType(Json *node, int32_t type);
ZEV_API bool zJsonSetNull(Json *node);
ZEV_API bool zJsonSetInt(Json *node, int64_t value);
ZEV_API bool zJsonSetReal(Json *node, double value);
ZEV_API bool zJsonSetBoolean(Json *node, bool value);
ZEV_API bool zJsonSetString(Json *node, const zwchar *text);
ZEV_API bool zJsonSetId(Json *node, const Oid *id);

// Put frees a member of the same name first. A node with a parent, or an object that is none,
// changes nothing: false, logged, nothing raised, and the node stays the caller's.
ZEV_API bool zJsonObjectPut(Json *object, const zwchar *name, Json *node);
// The member, or null without a failure; on what is no object class 2, logged.
ZEV_API Json *zJsonObjectAt(const Json *object, const zwchar *name);
ZEV_API bool zJsonObjectHas(const Json *object, const zwchar *name);
// Remove frees the member, Detach gives it to the caller as a root. False and null, logged, if
// there is none.
ZEV_API bool zJsonObjectRemove(Json *object, const zwchar *name);
ZEV_API Json *zJsonObjectDetach(Json *object, const zwchar *name);
ZEV_API bool zJsonObjectClear(Json *object);
// Walks the members in order of their names: current gives a Variant with the name, and its next
// one the node. Members may be put during the walk; the one it stands on may go as the last step
// only. Class 2, logged, on what is no object.
ZEV_API HashmapIter *zJsonObjectNewiter(Json *object);

// Push and Set take a node without a parent; Set and Remove free the old element. An index beyond
// the end is class 5. On what is no array they fail, logged, with nothing raised; the size is 0.
ZEV_API bool zJsonArrayPush(Json *array, Json *node);
ZEV_API uint64_t zJsonArraySize(const Json *array);
ZEV_API Json *zJsonArrayAt(const Json *array, uint64_t index);
ZEV_API bool zJsonArraySet(Json *array, uint64_t index, Json *node);
ZEV_API bool zJsonArrayRemove(Json *array, uint64_t index);

// A path is names between dots, each a step into a member: `a.b`. Empty names don't count, and `$`
// stands for the place reached so far. A step through what is no object is class 2, logged.
//
// The node or null; a missing one raises nothing. Remove frees it if it is there.
ZEV_API Json *zJsonPathGet(Json *root, const zwchar *path);
ZEV_API bool zJsonPathExists(Json *root, const zwchar *path);
ZEV_API bool zJsonPathRemove(Json *root, const zwchar *path);
// The converted value. Of a missing node: class 3 and false or 0; null or false from String and Id,
// with nothing raised.
ZEV_API bool zJsonPathGetBool(Json *root, const zwchar *path);
ZEV_API int64_t zJsonPathGetInt(Json *root, const zwchar *path);
ZEV_API int64_t zJsonPathGetLarge(Json *root, const zwchar *path);
ZEV_API const zwchar *zJsonPathGetString(Json *root, const zwchar *path);
ZEV_API bool zJsonPathGetId(Oid *id, Json *root, const zwchar *path);
// Set the value, making the node and the objects on the way. A path without a name is class 3.
ZEV_API bool zJsonPathSetBool(Json *root, const zwchar *path, bool value);
ZEV_API bool zJsonPathSetInt(Json *root, const zwchar *path, int32_t value);
ZEV_API bool zJsonPathSetLarge(Json *root, const zwchar *path, int64_t value);
ZEV_API bool zJsonPathSetString(Json *root, const zwchar *path, const zwchar *text);
ZEV_API bool zJsonPathSetId(Json *root, const zwchar *path, const Oid *id);

// A new tree, or null, logged, for what is no JSON: a refused text raises nothing of its own. The
// top is an object or an array, at most 255 deep. A stream is read to its end and holds UTF-8,
// where three bytes that begin with EF are dropped as a byte order mark. Of members with one name
// the last counts. \u and \/ are accepted and stay as they are.
ZEV_API Json *zJsonReadTextual(const zwchar *text);
ZEV_API Json *zJsonReadStream(Stream *stream);
ZEV_API Json *zJsonReadFile(const zwchar *path);
// The text of an object or an array, without blanks, reals with six digits: wide text for the
// caller to free, or UTF-8. Any other root fails, logged, and so does a real that is infinite or no
// number (class 5), before a file is opened. Files are written in place.
ZEV_API zwchar *zJsonWriteTextual(const Json *node);
ZEV_API bool zJsonWriteStream(const Json *node, Stream *stream);
ZEV_API bool zJsonWriteFile(const Json *node, const zwchar *path);
// New texts for the caller to free: with the escapes of JSON text, and with them taken back.
ZEV_API zwchar *zJsonEscapeString(const zwchar *text);
ZEV_API zwchar *zJsonUnescapeString(const zwchar *text);

ZEV_END
#endif
