// The manifest record: keys of a drawing's blocks, each stamped with the tag that the table had
// when the block was set. Objects bear the numbers of their handles; the other blocks negative
// ones, so that they sort behind all objects of their tag.
#include "objects/drawing/drawing.hpp"

#include "zev/oid.h"

#include <cstring>

namespace zev {
namespace {

constexpr uint64_t numbered(int64_t number) { return static_cast<uint64_t>(number); }

constexpr uint64_t kHeader = numbered(-1);
constexpr uint64_t kSummary = numbered(-2);
constexpr uint64_t kDs = numbered(-3);
constexpr uint64_t kVba = numbered(-4);
constexpr uint64_t kFirstClass = numbered(-101); // class n is n below it
constexpr uint64_t kNoVbaTag = 0xFFFFFFFF;

int32_t compare_keys(const void *a, const void *b) {
    int order = memcmp(a, b, sizeof(DrawingKey));
    return (order > 0) - (order < 0);
}

// Null where the tag can't be read: under a lower one a committed row would be written over.
DrawingKey *stamp(DrawingKey *key, Table *table, uint64_t object) {
    uint64_t tag = 0;
    if (!read_tag(table, tag)) return nullptr;
    *key = {tag, object};
    return key;
}

DrawingKey *key_at(const Vector *keys, uint64_t index) {
    return index < zVectorSize(keys) ? static_cast<DrawingKey *>(zVectorAddrAt(keys, index))
                                     : nullptr;
}

DrawingKey *add_key(Vector *keys, Table *table, uint64_t object) {
    DrawingKey key;
    if (!stamp(&key, table, object) || !zVectorPush(keys, &key)) return nullptr;
    return key_at(keys, zVectorSize(keys) - 1);
}

// Through the vector, which then no longer counts as sorted.
DrawingKey *set_key(Vector *keys, uint64_t index, Table *table, uint64_t object) {
    DrawingKey key;
    if (!stamp(&key, table, object) || !zVectorSet(keys, index, &key)) return nullptr;
    return key_at(keys, index);
}

} // namespace

Owned<Vector, zVectorFree> new_keys(uint64_t capacity) {
    return Owned<Vector, zVectorFree>{
        zVectorNewStru(capacity, sizeof(DrawingKey), compare_keys, nullptr)};
}

DrawingKey *extend_keys(Vector *keys, uint64_t count) {
    if (!zVectorGrow(keys, count)) return nullptr;
    DrawingKey *first = static_cast<DrawingKey *>(keys->data) + keys->size;
    keys->size += count;
    keys->sorted = false;
    return first;
}

void decode_keys(DrawingKey *keys, uint64_t count) {
    for (DrawingKey *key = keys; key != keys + count; ++key)
        *key = key_from(reinterpret_cast<const uint8_t *>(key));
}

} // namespace zev

using namespace zev;

uint64_t zDrawingKeyTag(const DrawingKey *key) {
    if (!key) return fail_args(), 0u;
    return key->tag;
}

uint64_t zDrawingKeyObject(const DrawingKey *key) {
    if (!key) return fail_args(), 0u;
    return key->object;
}

bool zDrawingKeyEqual(const DrawingKey *a, const DrawingKey *b) {
    if (!a || !b) return fail_args();
    return same_key(*a, *b);
}

bool zDrawingKeyGetData(Table *table, const DrawingKey *key, void **value, uint64_t *length) {
    if (!key) return fail_args();
    const KeyBytes bytes = key_bytes(*key);
    return zTableGet(value, length, table, bytes.data(), bytes.size());
}

bool zDrawingKeyPutData(Table *table, const DrawingKey *key, const void *value, uint64_t length) {
    if (!key) return fail_args();
    const KeyBytes bytes = key_bytes(*key);
    return zTablePut(table, bytes.data(), bytes.size(), value, length);
}

Drawing *zDrawingNew(const uint32_t *major, const uint32_t *minor) try {
    DrawingPtr drawing{new Drawing};
    if (major) drawing->major = *major;
    if (minor) drawing->minor = *minor;
    drawing->classes = new_keys(20);
    drawing->objects = new_keys(200);
    drawing->reference.reset(zMemStream(0, 0));
    if (!drawing->classes || !drawing->objects || !drawing->reference) return nullptr;
    return drawing.release();
} catch (...) {
    return fail_thrown();
}

void zDrawingFree(Drawing *drawing) { delete drawing; }

bool zDrawingVersion(const Drawing *drawing, uint32_t *major, uint32_t *minor) {
    if (!drawing) return fail_args();
    if (major) *major = drawing->major;
    if (minor) *minor = drawing->minor;
    return true;
}

const Oid *zDrawingTableId(const Drawing *drawing) {
    if (!drawing) return fail_args();
    return &drawing->table;
}

bool zDrawingTableIdSet(Drawing *drawing, const Oid *id) {
    if (!drawing || !id) return fail_args();
    return zOidCopy(&drawing->table, id);
}

DrawingKey *zDrawingHeader(Drawing *drawing) {
    if (!drawing) return fail_args();
    return &drawing->header;
}

DrawingKey *zDrawingSummary(Drawing *drawing) {
    if (!drawing) return fail_args();
    return &drawing->summary;
}

DrawingKey *zDrawingDS(Drawing *drawing) {
    if (!drawing) return fail_args();
    return &drawing->ds;
}

DrawingKey *zDrawingVbaProject(Drawing *drawing) {
    if (!drawing) return fail_args();
    return &drawing->vba;
}

DrawingKey *zDrawingHeaderSet(Drawing *drawing, Table *table) {
    if (!drawing || !table) return fail_args();
    return stamp(&drawing->header, table, kHeader);
}

DrawingKey *zDrawingSummarySet(Drawing *drawing, Table *table) {
    if (!drawing || !table) return fail_args();
    return stamp(&drawing->summary, table, kSummary);
}

DrawingKey *zDrawingDSSet(Drawing *drawing, Table *table) {
    if (!drawing || !table) return fail_args();
    return stamp(&drawing->ds, table, kDs);
}

// The row goes first, so that the manifest never names a project that was not stored.
DrawingKey *zDrawingVbaProjectSet(Drawing *drawing, Table *table, const void *data, uint64_t size) {
    if (!drawing || !table || (size && !data)) return fail_args();
    if (!size) {
        drawing->vba = {kNoVbaTag, kVba};
        return nullptr;
    }
    DrawingKey key;
    if (!stamp(&key, table, kVba) || !zDrawingKeyPutData(table, &key, data, size)) return nullptr;
    drawing->vba = key;
    return &drawing->vba;
}

bool zDrawingHasVba(const Drawing *drawing) {
    if (!drawing) return fail_args();
    return drawing->vba.object == kVba && drawing->vba.tag != kNoVbaTag;
}

uint64_t zDrawingClassCount(const Drawing *drawing) {
    if (!drawing) return fail_args(), 0u;
    return zVectorSize(drawing->classes.get());
}

DrawingKey *zDrawingClassGetAt(Drawing *drawing, uint64_t index) {
    DrawingKey *key = drawing ? key_at(drawing->classes.get(), index) : nullptr;
    return key ? key : fail_args();
}

DrawingKey *zDrawingClassAdd(Drawing *drawing, Table *table) {
    if (!drawing || !table) return fail_args();
    Vector *classes = drawing->classes.get();
    return add_key(classes, table, kFirstClass - zVectorSize(classes));
}

DrawingKey *zDrawingClassModify(Drawing *drawing, uint64_t index, Table *table) {
    if (!drawing || !table || index >= zDrawingClassCount(drawing)) return fail_args();
    return set_key(drawing->classes.get(), index, table, kFirstClass - index);
}

uint64_t zDrawingObjectCount(const Drawing *drawing) {
    if (!drawing) return fail_args(), 0u;
    return zVectorSize(drawing->objects.get());
}

DrawingKey *zDrawingObjectGetAt(Drawing *drawing, uint64_t index) {
    DrawingKey *key = drawing ? key_at(drawing->objects.get(), index) : nullptr;
    return key ? key : fail_args();
}

DrawingKey *zDrawingObjectAdd(Drawing *drawing, Table *table, uint64_t object) {
    if (!drawing || !table) return fail_args();
    return add_key(drawing->objects.get(), table, object);
}

bool zDrawingObjectRemove(Drawing *drawing, uint64_t index) {
    if (!drawing || index >= zDrawingObjectCount(drawing)) return fail_args();
    return zVectorRemove(drawing->objects.get(), index);
}

bool zDrawingObjectModify(Drawing *drawing, uint64_t index, Table *table, uint64_t object) {
    if (!drawing || !table || index >= zDrawingObjectCount(drawing)) return fail_args();
    return set_key(drawing->objects.get(), index, table, object) != nullptr;
}

bool zDrawingSetThumbnail(Drawing *drawing, uint32_t size, const void *data) {
    if (!drawing || (size && !data)) return fail_args();
    Malloced<uint8_t> copy{size ? static_cast<uint8_t *>(malloc(size)) : nullptr};
    if (size && !copy) return fail_memory();
    if (size) memcpy(copy.get(), data, size);
    drawing->thumbnail = std::move(copy);
    drawing->thumbnail_size = size;
    return true;
}

const void *zDrawingThumbnail(const Drawing *drawing, uint32_t *size) {
    if (!drawing || !size) return fail_args();
    *size = drawing->thumbnail_size;
    return drawing->thumbnail.get();
}

Stream *zDrawingReference(Drawing *drawing, uint32_t *major, uint32_t *minor) {
    if (!zDrawingVersion(drawing, major, minor)) return nullptr;
    zStreamRewind(drawing->reference.get());
    return drawing->reference.get();
}
