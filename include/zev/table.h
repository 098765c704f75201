// Table: the LevelDB database behind a drawing, one block a key, held by one opener at a time.
//
// A table lies in tables/<2 hex>/<38 hex> of its repository, of the main one for a linked worktree.
// Rows have 16-byte keys: the tag, a generation counter, and the object's number, big-endian
// (zDrawingKey..., zev/drawing.h). All bits zero is the path of the drawing that the table serves,
// all bits set the table's tag. Open a table for one operation and free it at once: nobody else, in
// this process or another, can open it meanwhile, but that many may look at it.
//
// The tag rule. New keys are stamped with the table's tag, and a row under an existing key is
// written over. What a commit names must never be: so after each commit of a drawing, and before
// anything of it is changed again, the host raises the tag (zTableTagIncrement). Objects that are
// changed then get new keys (zDrawingObjectModify), the committed rows stay, and every version can
// be read back. The library does not raise it: it can't know which rows the host still means to
// correct.
//
// What LevelDB refuses is the store error, class 13, with LevelDB's text as message. Rows reach the
// disk with the next commit of the repository, a tag at once.
#ifndef ZEV_TABLE_H
#define ZEV_TABLE_H

#include "zev/base.h"

ZEV_BEGIN

// Opens the database in a directory. With `create` it is made when it is missing, with its
// parents; without, a directory that holds none is the store error. Somebody else who holds it is
// waited for, up to three seconds, then class 7. A directory that refuses writing, of an archive or
// a read-only file system, is opened for reading: whatever would change the table is EROFS.
ZEV_API Table *zTableOpen(const zwchar *path, bool create);

// A new table with a random id, and the table of an id, which is made when it is missing.
ZEV_API Table *zTableRand(Repository *repository);
ZEV_API Table *zTableByid(Repository *repository, const Oid *id);
// To be looked at only: nothing is written in its directory, and others may look at it, too. Who
// writes is waited for as above, and waits for us; what would change the table is EACCES. A table
// that isn't there is the store error. Where the directory can't be locked, no temporary directory
// is to be had, or the last import of much is still to be sorted in, it is opened as by its id.
ZEV_API Table *zTableLook(Repository *repository, const Oid *id);
// The same as by its id in the repository found from `start` upwards, not beyond a directory of
// `ceilings` (separated by ;). The repository is closed again, so this table has no owner.
ZEV_API Table *zTableDiscover(const zwchar *start, const zwchar *ceilings, const Oid *id);
// Where the table of an id lies, or would be made: `path` takes Z_PATH_MAX units. It lies where all
// worktrees of a repository share it, unless a linked one has it in its own Git directory, as was
// the custom once. In goes by the work directory, or bare repository, of which nothing is opened or
// changed, whoever owns it: not found where there is none, whatever lies above.
ZEV_API bool zTablePlace(zwchar *path, Repository *repository, const Oid *id);
ZEV_API bool zTablePlaceIn(zwchar *path, const zwchar *workdir, const Oid *id);
// Free the table's iterators first.
ZEV_API void zTableFree(Table *table);

// Lent. The id is all zero and the owner null after zTableOpen.
ZEV_API const Oid *zTableId(const Table *table);
ZEV_API Repository *zTableOwner(const Table *table);
ZEV_API const zwchar *zTablePath(const Table *table);

// One row, by a key of any length. The value comes in a block that the caller frees with free;
// a missing key is the store error without text. zTableDel tells nothing of what LevelDB says.
ZEV_API bool zTableGet(void **value, uint64_t *length, Table *table, const void *key,
                       uint64_t key_length);
ZEV_API bool zTablePut(Table *table, const void *key, uint64_t key_length, const void *value,
                       uint64_t value_length);
ZEV_API bool zTableDel(Table *table, const void *key, uint64_t key_length);

// The tag that new keys are stamped with, 1 in a new table and when it can't be read; see the tag
// rule above. Set and Increment have it on the disk when they return: one that was handed out is
// not handed out again. Incrementing fails rather than start over when it can't be read.
ZEV_API uint64_t zTableTagGet(Table *table);
ZEV_API bool zTableTagSet(Table *table, uint64_t value);
ZEV_API bool zTableTagIncrement(Table *table);

// A walk over the rows in key order, as they stood when the iterator was made; seek first. Done
// holds before the first seek, beyond either end, and for null. Key and value are lent until the
// iterator moves. Seek goes to the first key not below the given one. Moving on from, or asking,
// an iterator that is done is a bad argument.
ZEV_API TableIter *zTableIterNew(Table *table);
ZEV_API void zTableIterFree(TableIter *iter);
ZEV_API bool zTableIterDone(const TableIter *iter);
ZEV_API bool zTableIterSeekToFirst(TableIter *iter);
ZEV_API bool zTableIterSeekToLast(TableIter *iter);
ZEV_API bool zTableIterNext(TableIter *iter);
ZEV_API bool zTableIterPrev(TableIter *iter);
ZEV_API bool zTableIterSeek(TableIter *iter, const void *key, uint64_t key_length);
ZEV_API bool zTableIterKey(const void **key, uint64_t *length, const TableIter *iter);
ZEV_API bool zTableIterValue(const void **value, uint64_t *length, const TableIter *iter);

// Puts the table's files in order: what was written over or deleted goes, and few files are left.
// Takes as long as writing all rows anew. A table with a damaged row is refused, and what the store
// could not do is left undone, with nothing lost. Free the table's iterators first.
ZEV_API bool zTableCompact(Table *table);
// Takes a table away for good, with its rows, and closes it as zTableFree does, whatever comes of
// it. For one that no drawing names.
ZEV_API bool zTableRemove(Table *table);

// A new table in the same repository with every row of this one; still open. Needs an owner.
ZEV_API Table *zTableDuplicate(Table *table);

// Rows as a pair stream: key length u32, key, value length u32, value, big-endian, ended by a key
// length of 0. In a temporary file, at its start. Of the keys asked for, those that the table
// lacks or can't read are left out and raise the store error; the whole table comes whole or not
// at all (null).
ZEV_API Stream *zTableWriteOut(Table *table);
ZEV_API Stream *zTablePartialWriteOut(Table *table, const Vector *keys);
// Stores the rows of a pair stream, in large batches: the fast way to put many. A stream that
// breaks off ends there, which is no failure; false when the store refused rows.
ZEV_API bool zTableReadStream(Table *table, Stream *stream);

// Fetches rows from the server of the table's repository, by a vector of DrawingKey to which the
// tag key is added: the table has the server's tag afterwards. Rows that the server lacks are left
// out. The table stays open, and nobody else can open it, for so long. Needs an owner.
ZEV_API bool zTableCheckKeys(Table *table, Vector *keys);

ZEV_END
#endif
