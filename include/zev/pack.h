// Pack: objects on their way between repositories, as git packs. A PackBuilder puts one together
// and gives it out in pieces; a PackWriter takes such pieces and makes the objects part of its
// repository. Failures of libgit2 are raised with its code; a null argument is class 2, logged.
#ifndef ZEV_PACK_H
#define ZEV_PACK_H

#include "zev/base.h"

ZEV_BEGIN

// Takes one piece of a pack. Another result than 0 stops the walk and is its failure's code.
typedef int32_t (*PackCallback)(const void *bytes, uint64_t size, void *context);

// ---- Building

// The repository outlives the builder. Free accepts null.
ZEV_API PackBuilder *zPackBuilderNew(Repository *repository);
ZEV_API void zPackBuilderFree(PackBuilder *builder);

// One object; the object and all below it, where a commit gives itself and its tree, no parents,
// and a tag itself and what it names; a tree with all below it; a commit with its tree. An object
// that is in already counts once. A missing one is class 3.
ZEV_API bool zPackBuilderInsert(PackBuilder *builder, const Oid *id);
ZEV_API bool zPackBuilderInsertRecur(PackBuilder *builder, const Oid *id);
ZEV_API bool zPackBuilderInsertTree(PackBuilder *builder, const Oid *id);
ZEV_API bool zPackBuilderInsertCommit(PackBuilder *builder, const Oid *id);

// Writes pack-<40 digits>.pack and its .idx into a directory that exists. On failure nothing is
// left in it. The pack streams through, but each object is in memory as a whole for its time.
ZEV_API bool zPackBuilderWrite(PackBuilder *builder, const zwchar *directory);

// Calls back with each piece, in order; a piece has at most 1 MiB. It leaves no file, so both
// paths are null afterwards. A builder can be written and walked as often as wanted.
ZEV_API bool zPackBuilderForeach(PackBuilder *builder, PackCallback callback, void *context);

// Objects in the pack, and how many of them the last write or walk has given out.
ZEV_API uint64_t zPackBuilderCount(const PackBuilder *builder);
ZEV_API uint64_t zPackBuilderWritten(const PackBuilder *builder);

// The files of the last write, lent; null before.
ZEV_API const zwchar *zPackBuilderIdx(const PackBuilder *builder);
ZEV_API const zwchar *zPackBuilderPack(const PackBuilder *builder);

// ---- Taking in

// The repository outlives the writer. Free accepts null; without a commit before it, the store
// is as it was.
ZEV_API PackWriter *zPackWriterNew(Repository *repository);
ZEV_API void zPackWriterFree(PackWriter *writer);
ZEV_API Repository *zPackWriterOwner(const PackWriter *writer);

// The pack's bytes, in pieces of any size. False for bytes that can't belong to a pack, and for
// one of too many objects: the writer has then let go of all that it was given, and every later
// call fails.
ZEV_API bool zPackWriterAppend(PackWriter *writer, const void *bytes, uint64_t size);

// Makes the objects readable, through this repository's handle too. False for a pack that is cut
// or damaged, whose deltas lean on objects that it lacks, or unfold out of proportion; of such a
// one nothing is left. Nothing is synced: that is done once, before a reference names the objects.
ZEV_API bool zPackWriterCommit(PackWriter *writer);

// ---- A store made smaller

// What zRepositoryRepack did, or would do. Sizes are what files take on the disk, in whole blocks,
// packs with their indexes.
typedef struct Repack {
    uint64_t objects;       // in the one pack
    uint64_t loose, packs;  // files in place of which it came, or would
    uint64_t before, after; // bytes of these; of the pack, or as before where it is no smaller
} Repack;

// Puts all objects that the repository itself has, whoever names them, into one pack, with those
// kept as differences that are shorter so: the versions of a file lie side by side. With `writes`
// the files in place of which it came go, once it is on the disk with every object of theirs; a
// kill at any moment leaves each object somewhere. Objects that come meanwhile stay as they are, as
// do packs that git is told to keep; without gain nothing changes at all. `notify` is told of
// progress, and its break is class 6. The caller holds the index lock.
ZEV_API bool zRepositoryRepack(Repack *result, Repository *repository, bool writes,
                               const Notify *notify);

ZEV_END
#endif
