// Vector: the one growing array, of primitives, strings, pointers or structures.
//
// A vector owns its storage and its copies of strings; pointers and what structures refer to
// only through the release function given at creation. A record that was zeroed or cleaned up is
// no vector: every call but Free, Cleanup and IsValid raises class 2 and logs it. Indexes beyond
// the size raise class 2 without a log line.
#ifndef ZEV_VECTOR_H
#define ZEV_VECTOR_H

#include "zev/base.h"

ZEV_BEGIN

// Type codes; only 17 to 20 have more to them than width and sign.
enum {
    Z_TYPE_BYTE = 0,
    Z_TYPE_INT8 = 1,
    Z_TYPE_UINT8 = 2,
    Z_TYPE_INT16 = 3,
    Z_TYPE_UINT16 = 4,
    Z_TYPE_INT32 = 5,
    Z_TYPE_UINT32 = 6,
    Z_TYPE_LONG = 7,
    Z_TYPE_ULONG = 8,
    Z_TYPE_FLOAT = 9,
    Z_TYPE_INT64 = 10,
    Z_TYPE_UINT64 = 11,
    Z_TYPE_DOUBLE = 12,
    Z_TYPE_CHAR = 13,
    Z_TYPE_WCHAR = 14,
    Z_TYPE_SIZE = 15,
    Z_TYPE_SSIZE = 16,
    Z_TYPE_POINTER = 17,
    Z_TYPE_STRINGA = 18,
    Z_TYPE_STRINGW = 19,
    Z_TYPE_STRUCT = 20
};

// Three-way comparison. Pointer vectors hand over the elements, others the slots' addresses.
typedef int32_t (*VectorComp)(const void *a, const void *b);
typedef struct VectorDescriptor VectorDescriptor;

// Embedded in larger records through the Init functions; its fields are read by calls only.
struct Vector {
    void *data;
    uint64_t size;
    uint64_t capacity;
    bool sorted;
    int32_t type;
    const VectorDescriptor *descriptor;
    const char *sentinel;
};

// Empty vectors; a capacity below 8 is 8. NewPrim takes the codes 0 to 19. Comparator and release
// function may be null; without a comparator a vector neither sorts nor searches. Null with class
// 1 or 2 on failure.
ZEV_API Vector *zVectorNewPrim(int32_t type, uint64_t capacity);
ZEV_API Vector *zVectorNewStru(uint64_t capacity, uint64_t element_size, VectorComp compare,
                               ReleaseFn release);
ZEV_API Vector *zVectorNewPtr(uint64_t capacity, VectorComp compare, ReleaseFn release);
// The same in a record of the caller's, which zVectorCleanup ends. What was in it is not released.
ZEV_API bool zVectorInitPrim(Vector *vector, int32_t type, uint64_t capacity);
ZEV_API bool zVectorInitStru(Vector *vector, uint64_t capacity, uint64_t element_size,
                             VectorComp compare, ReleaseFn release);
ZEV_API bool zVectorInitPtr(Vector *vector, uint64_t capacity, VectorComp compare,
                            ReleaseFn release);
// Free gives back elements, storage and record; Cleanup leaves the record, zeroed.
ZEV_API void zVectorFree(Vector *vector);
ZEV_API void zVectorCleanup(Vector *vector);
// Reserve makes room for `count` elements in all, Grow for `count` more. Failure, also for want of
// memory, is class 2 and changes nothing.
ZEV_API bool zVectorReserve(Vector *vector, uint64_t count);
ZEV_API bool zVectorGrow(Vector *vector, uint64_t count);
// Only for structures and pointers that have functions of their own; others raise class 2.
ZEV_API bool zVectorSetComp(Vector *vector, VectorComp compare);
// What an invalid vector gives: -1, false, true, then 0.
ZEV_API int32_t zVectorType(const Vector *vector);
ZEV_API bool zVectorIsValid(const Vector *vector);
ZEV_API bool zVectorIsEmpty(const Vector *vector);
ZEV_API uint64_t zVectorSize(const Vector *vector);
ZEV_API uint64_t zVectorCapacity(const Vector *vector);
ZEV_API uint64_t zVectorAvailable(const Vector *vector);
// Storage, valid until the vector grows. AddrAt does not test the index.
ZEV_API void *zVectorAddrAt(const Vector *vector, uint64_t index);
ZEV_API void *zVectorData(Vector *vector);
ZEV_API const void *zVectorDataConst(const Vector *vector);
// The element follows by value for codes 0 to 16 (64 bits wide for 10, 11, 15, 16), as the pointer
// for 17 to 19, as a pointer to the structure for 20. Strings and structures are copied, and may
// be elements of the vector itself. Insert past the end appends. An element that is replaced or
// removed goes to the release function. Last and At store the value in `out`; for codes 17 to 20
// they store a pointer that the vector keeps, and `out` may be null.
ZEV_API bool zVectorPush(Vector *vector, ...);
ZEV_API bool zVectorPop(Vector *vector);
ZEV_API bool zVectorLast(const Vector *vector, void *out);
ZEV_API bool zVectorAt(const Vector *vector, uint64_t index, void *out);
ZEV_API bool zVectorInsert(Vector *vector, uint64_t index, ...);
ZEV_API bool zVectorSet(Vector *vector, uint64_t index, ...);
ZEV_API bool zVectorRemove(Vector *vector, uint64_t index);
ZEV_API bool zVectorRemoveAll(Vector *vector);
// By the comparator; without one class 10. Equal elements keep their order.
ZEV_API bool zVectorSort(Vector *vector);
// The index of an element equal to the one that follows, as for Push; -1 when there is none, which
// is no failure. Sorts first if need be.
ZEV_API int64_t zVectorSearch(Vector *vector, ...);

ZEV_END
#endif
