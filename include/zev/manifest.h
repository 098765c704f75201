// Manifest: the keys of a drawing, read in place from the bytes of its .dwx file. For those who
// look at many versions of a drawing and would make a Drawing (zev/drawing.h) of each for nothing.
#ifndef ZEV_MANIFEST_H
#define ZEV_MANIFEST_H

#include "zev/base.h"

ZEV_BEGIN

// A list lends from the bytes: 16 each, tag and object number, big-endian, in the file's order.
typedef struct Manifest {
    Oid table;
    DrawingKey header, summary, ds, vba; // zero for what the file hasn't
    const uint8_t *classes, *objects;
    uint64_t class_count, object_count;
    const uint8_t *reference; // the reference data, lent from the bytes
    uint64_t reference_size;
    void *joined; // what a list that the file has in pieces lends from; owned
} Manifest;

// Fills a record from the bytes of a file, which outlive it. False when they are no whole drawing,
// as zDrawingRead says it, with nothing raised and nothing to give back.
ZEV_API bool zManifestRead(Manifest *manifest, const void *bytes, uint64_t size);
ZEV_API void zManifestDeinit(Manifest *manifest);

// The key at a place of a list, which is not tested against its count.
ZEV_API bool zManifestKey(DrawingKey *key, const uint8_t *list, uint64_t index);

ZEV_END
#endif
