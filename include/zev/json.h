// Json: the tree behind all structured data, dotted paths over it, its text form.
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

ZEV_API Json *zJsonNew(int32_t type);
ZEV_API bool zJsonInit(Json *node, int32_t type);
ZEV_API Json *zJsonNewObject(const zwchar *name, ...);
ZEV_API Json *zJsonNewArray(Json *node, ...);
ZEV_API Json *zJsonNewPath(const zwchar *path, Json *node);
ZEV_API Json *zJsonNewString(const zwchar *text);
ZEV_API Json *zJsonAttachString(zwchar *text);
ZEV_API Json *zJsonNewId(const Oid *id);
ZEV_API Json *zJsonNewInt(int64_t value);
ZEV_API Json *zJsonNewReal(double value);
ZEV_API Json *zJsonNewBoolean(bool value);
ZEV_API Json *zJsonNewNull(void);
ZEV_API Json *zJsonDup(const Json *node);
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

ZEV_API int64_t zJsonGetInt(const Json *node);
ZEV_API double zJsonGetReal(const Json *node);
ZEV_API bool zJsonGetBoolean(const Json *node);
ZEV_API const zwchar *zJsonGetString(const Json *node);
ZEV_API bool zJsonGetId(Oid *id, const Json *node);
ZEV_API bool zJsonSetType(Json *node, int32_t type);
ZEV_API bool zJsonSetNull(Json *node);
ZEV_API bool zJsonSetInt(Json *node, int64_t value);
ZEV_API bool zJsonSetReal(Json *node, double value);
ZEV_API bool zJsonSetBoolean(Json *node, bool value);
ZEV_API bool zJsonSetString(Json *node, const zwchar *text);
ZEV_API bool zJsonSetId(Json *node, const Oid *id);

ZEV_API bool zJsonObjectPut(Json *object, const zwchar *name, Json *node);
ZEV_API Json *zJsonObjectAt(const Json *object, const zwchar *name);
ZEV_API bool zJsonObjectHas(const Json *object, const zwchar *name);
ZEV_API bool zJsonObjectRemove(Json *object, const zwchar *name);
ZEV_API Json *zJsonObjectDetach(Json *object, const zwchar *name);
ZEV_API bool zJsonObjectClear(Json *object);
ZEV_API HashmapIter *zJsonObjectNewiter(Json *object);

ZEV_API bool zJsonArrayPush(Json *array, Json *node);
ZEV_API uint64_t zJsonArraySize(const Json *array);
ZEV_API Json *zJsonArrayAt(const Json *array, uint64_t index);
ZEV_API bool zJsonArraySet(Json *array, uint64_t index, Json *node);
ZEV_API bool zJsonArrayRemove(Json *array, uint64_t index);

ZEV_API Json *zJsonPathGet(Json *root, const zwchar *path);
ZEV_API bool zJsonPathExists(Json *root, const zwchar *path);
ZEV_API bool zJsonPathRemove(Json *root, const zwchar *path);
ZEV_API bool zJsonPathGetBool(Json *root, const zwchar *path);
ZEV_API int64_t zJsonPathGetInt(Json *root, const zwchar *path);
ZEV_API int64_t zJsonPathGetLarge(Json *root, const zwchar *path);
ZEV_API const zwchar *zJsonPathGetString(Json *root, const zwchar *path);
ZEV_API bool zJsonPathGetId(Oid *id, Json *root, const zwchar *path);
ZEV_API bool zJsonPathSetBool(Json *root, const zwchar *path, bool value);
ZEV_API bool zJsonPathSetInt(Json *root, const zwchar *path, int32_t value);
ZEV_API bool zJsonPathSetLarge(Json *root, const zwchar *path, int64_t value);
ZEV_API bool zJsonPathSetString(Json *root, const zwchar *path, const zwchar *text);
ZEV_API bool zJsonPathSetId(Json *root, const zwchar *path, const Oid *id);

ZEV_API Json *zJsonReadTextual(const zwchar *text);
ZEV_API Json *zJsonReadStream(Stream *stream);
ZEV_API Json *zJsonReadFile(const zwchar *path);
ZEV_API zwchar *zJsonWriteTextual(const Json *node);
ZEV_API bool zJsonWriteStream(const Json *node, Stream *stream);
ZEV_API bool zJsonWriteFile(const Json *node, const zwchar *path);
ZEV_API zwchar *zJsonEscapeString(const zwchar *text);
ZEV_API zwchar *zJsonUnescapeString(const zwchar *text);

ZEV_END
#endif
