// Drawing: the manifest of a drawing, a list of keys into its table; and comparing two of them.
//
// A .dwx file names the table and, by their keys, the header, summary, DS block, VBA project,
// classes and objects of one drawing; the blocks' bytes are rows of the table (zev/table.h). To
// set a block, stamp its key with the table's tag, then store its bytes under the key that you
// got back by zDrawingKeyPutData. Rows of an older tag are never written over, so that older
// versions of the file stay readable; rows of the present one are. So after each commit the host
// raises the tag (zTableTagIncrement), or its next change takes the committed rows away.
//
// Keys that are lent point into the record: those of a list until the list changes. An index
// beyond the list is a bad argument. A file with bad content gives false or null and raises
// nothing; one that can't be opened raises the system's error.
#ifndef ZEV_DRAWING_H
#define ZEV_DRAWING_H

#include "zev/base.h"

ZEV_BEGIN

// Keys. Written and read as 16 bytes, big-endian; reading fails when fewer came. Data is the row
// of the key in the table, see zTableGet and zTablePut.
ZEV_API uint64_t zDrawingKeyTag(const DrawingKey *key);
ZEV_API uint64_t zDrawingKeyObject(const DrawingKey *key);
ZEV_API bool zDrawingKeyEqual(const DrawingKey *a, const DrawingKey *b);
ZEV_API bool zDrawingKeyWrite(Stream *stream, const DrawingKey *key);
ZEV_API bool zDrawingKeyRead(Stream *stream, DrawingKey *key);
ZEV_API bool zDrawingKeyGetData(Table *table, const DrawingKey *key, void **value,
                                uint64_t *length);
ZEV_API bool zDrawingKeyPutData(Table *table, const DrawingKey *key, const void *value,
                                uint64_t length);

// Lists of keys (vectors of DrawingKey) on the wire: count u32, then 16 bytes a key. Written into
// a temporary file, at its start; Trunk takes at most `limit` keys from `cursor` on, and moves
// it. A list of no keys, or one that breaks off, reads as null.
ZEV_API Stream *zDrawingKeyVectorWrite(const Vector *keys);
ZEV_API Stream *zDrawingKeyVectorWriteTrunk(const Vector *keys, uint64_t limit, uint64_t *cursor);
ZEV_API Vector *zDrawingKeyVectorRead(Stream *stream);

// An empty drawing; a null number is 1.
ZEV_API Drawing *zDrawingNew(const uint32_t *major, const uint32_t *minor);
ZEV_API void zDrawingFree(Drawing *drawing);
// Of the file that it was read from; either may be null. Written is always 1.1.
ZEV_API bool zDrawingVersion(const Drawing *drawing, uint32_t *major, uint32_t *minor);
ZEV_API const Oid *zDrawingTableId(const Drawing *drawing);
ZEV_API bool zDrawingTableIdSet(Drawing *drawing, const Oid *id);

// Keys of the single blocks, lent; all zero until set. Setting the VBA project also stores its
// data; size 0 says that there is none, and gives null.
ZEV_API DrawingKey *zDrawingHeader(Drawing *drawing);
ZEV_API DrawingKey *zDrawingSummary(Drawing *drawing);
ZEV_API DrawingKey *zDrawingDS(Drawing *drawing);
ZEV_API DrawingKey *zDrawingVbaProject(Drawing *drawing);
ZEV_API DrawingKey *zDrawingHeaderSet(Drawing *drawing, Table *table);
ZEV_API DrawingKey *zDrawingSummarySet(Drawing *drawing, Table *table);
ZEV_API DrawingKey *zDrawingDSSet(Drawing *drawing, Table *table);
ZEV_API DrawingKey *zDrawingVbaProjectSet(Drawing *drawing, Table *table, const void *data,
                                          uint64_t size);
ZEV_API bool zDrawingHasVba(const Drawing *drawing);

// Classes are numbered by their place, objects by the handle that the host chose. Modify gives
// the entry the table's present tag.
ZEV_API uint64_t zDrawingClassCount(const Drawing *drawing);
ZEV_API DrawingKey *zDrawingClassGetAt(Drawing *drawing, uint64_t index);
ZEV_API DrawingKey *zDrawingClassAdd(Drawing *drawing, Table *table);
ZEV_API DrawingKey *zDrawingClassModify(Drawing *drawing, uint64_t index, Table *table);
ZEV_API uint64_t zDrawingObjectCount(const Drawing *drawing);
ZEV_API DrawingKey *zDrawingObjectGetAt(Drawing *drawing, uint64_t index);
ZEV_API DrawingKey *zDrawingObjectAdd(Drawing *drawing, Table *table, uint64_t object);
ZEV_API bool zDrawingObjectRemove(Drawing *drawing, uint64_t index);
ZEV_API bool zDrawingObjectModify(Drawing *drawing, uint64_t index, Table *table, uint64_t object);

// Sizes in bytes. The thumbnail is copied in and lent out; size 0 clears it. The reference data
// is the drawing's own memory stream, at its start; what is written into it is saved.
ZEV_API bool zDrawingSetThumbnail(Drawing *drawing, uint32_t size, const void *data);
ZEV_API const void *zDrawingThumbnail(const Drawing *drawing, uint32_t *size);
ZEV_API Stream *zDrawingReference(Drawing *drawing, uint32_t *major, uint32_t *minor);

// Whole files. Writing replaces the file at once or not at all, and refuses one that is
// read-only, and a symbolic link; out of range when it would exceed 4 GiB.
ZEV_API Drawing *zDrawingRead(const zwchar *path);
ZEV_API bool zDrawingWrite(Drawing *drawing, const zwchar *path);

// Whether a file named .dwx, or a stream, is a drawing, and which table it names; `id` may be
// null. Streams are rewound before and after.
ZEV_API bool zDrawingDetect(Oid *id, const zwchar *path);
ZEV_API bool zDrawingDetectStream(Oid *id, Stream *stream);
ZEV_API bool zDrawingTableSame(Stream *a, Stream *b);

// One section of a file without the rest: the thumbnail in a block for free, the reference data
// as a memory stream. Null when the file has none.
ZEV_API void *zDrawingFileThumbnail(const zwchar *path, uint32_t *size);
ZEV_API Stream *zReadReferenceData(const zwchar *path, uint32_t *major, uint32_t *minor);

// Which file a table serves: what was noted there, without a "./" in front, in Z_PATH_MAX units;
// not found, or the store error, for a table that serves whoever names it. Set notes it: `path`
// relative to `base`, or as it is when `base` is null. Confirming gives a drawing file whose table
// serves another path a table of its own, with the rows of this drawing, and lets the file name it;
// the other table stays as it is. What could not be done stays undone, with the reason in the error
// record.
ZEV_API bool zDrawingTableBackwardRef(zwchar *path, Table *table);
ZEV_API bool zDrawingTableBackwardRefSet(Table *table, const zwchar *base, const zwchar *path);
ZEV_API void zDrawingConfirmTableBackwardRef(const zwchar *path);
// Brings what the table lacks of the drawing at `path` from the server of its repository; a table
// that is complete asks nobody. Whether it holds the classes and the objects then; that the single
// blocks could not be had makes it no failure.
ZEV_API bool zDrawingDataPrepare(const zwchar *path, Drawing *drawing);

// Two versions of one drawing; false also when they name different tables. Increments are the
// keys of `to` that `from` lacks, in their 16-byte form. Differences are object numbers (vectors
// of uint64_t): added and modified, another tag that is, in the order of `to`, removed ascending.
// All results are new vectors; the three of the latter must be null before.
ZEV_API bool zDrawingIncrements(Stream *from, Stream *to, Vector **keys);
ZEV_API bool zDrawingGetDifference(const zwchar *from, const zwchar *to, Vector **added,
                                   Vector **modified, Vector **removed);

ZEV_END
#endif
