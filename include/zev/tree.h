// Tree: directories of the object store, their entries, and building new ones.
//
// Paths have forward slashes. A client may hold a part of a project: a tree can name blobs, and be
// built of blobs, that are not there. What is not found is class 3.
#ifndef ZEV_TREE_H
#define ZEV_TREE_H

#include "zev/base.h"

ZEV_BEGIN

// `directory` ends in a slash unless empty. Negative ends the walk, above 0 skips the subtree.
typedef int32_t (*TreeCallback)(const zwchar *directory, const TreeEntry *entry, void *context);

// New takes over a git_tree, which stays the caller's on failure. Byid takes the id of anything
// that leads to a tree, a commit's too; Byref full and short names.
ZEV_API Tree *zTreeNew(void *handle, Repository *repository);
ZEV_API Tree *zTreeByid(Repository *repository, const Oid *id);
ZEV_API Tree *zTreeByprefix(Repository *repository, const Oid *prefix, uint64_t length);
ZEV_API Tree *zTreeBypath(Object *object, const zwchar *path);
ZEV_API Tree *zTreeByref(Repository *repository, const zwchar *name);
ZEV_API Tree *zTreeHead(Repository *repository);
ZEV_API Tree *zTreePeel(Object *object);
ZEV_API void zTreeFree(Tree *tree);
ZEV_API const Oid *zTreeId(const Tree *tree);
ZEV_API Repository *zTreeOwner(const Tree *tree);

// The files, at any depth, that a spec selects: as a path list in tree order (zPathListFree), null
// and class 3 if there are none and the spec says that one must; and whether there is one, where
// none raises nothing.
ZEV_API Vector *zTreeMatch(Tree *tree, PathSpec *spec);
ZEV_API bool zTreeExists(Tree *tree, PathSpec *spec);

// Every entry at every depth, a directory before what it holds. False when the callback ended it.
ZEV_API bool zTreeWalk(Tree *tree, TreeCallback callback, void *context);

// An entry is a copy that outlives its tree. New and Set take a git_tree_entry.
ZEV_API TreeEntry *zTreeEntryNew(const void *handle);
ZEV_API bool zTreeEntrySet(TreeEntry *entry, const void *handle);
ZEV_API uint64_t zTreeEntryCount(const Tree *tree);

// Bypath goes to any depth, the others look at the tree's own entries.
ZEV_API TreeEntry *zTreeEntryByindex(Tree *tree, uint64_t index);
ZEV_API TreeEntry *zTreeEntryByname(Tree *tree, const zwchar *name);
ZEV_API TreeEntry *zTreeEntryByid(Tree *tree, const Oid *id);
ZEV_API TreeEntry *zTreeEntryBypath(Tree *tree, const zwchar *path);
ZEV_API void zTreeEntryFree(TreeEntry *entry);
ZEV_API const zwchar *zTreeEntryName(const TreeEntry *entry);
ZEV_API const Oid *zTreeEntryId(const TreeEntry *entry);
ZEV_API int32_t zTreeEntryType(const TreeEntry *entry);

// 0100644 file, 0100755 program, 0040000 directory, 0120000 link, 0160000 submodule; any other mode
// reads as 0.
ZEV_API uint32_t zTreeEntryMode(const TreeEntry *entry);
ZEV_API Object *zTreeEntryToObject(const TreeEntry *entry, Repository *repository);

// Gathers files by their full paths, starting from those of `base`, which may be null, and writes
// all trees in one step. Insert replaces what it finds and makes a plain file; a path that no
// working copy could hold is class 2, a new one that differs from another in case only class 4.
// Removing what is not there is no failure.
ZEV_API TreeBuilder *zTreeBuilderNew(Repository *repository, Tree *base);
ZEV_API void zTreeBuilderFree(TreeBuilder *builder);
ZEV_API bool zTreeBuilderExists(TreeBuilder *builder, const zwchar *path);
ZEV_API bool zTreeBuilderInsert(TreeBuilder *builder, const zwchar *path, const Oid *id);
ZEV_API bool zTreeBuilderRemove(TreeBuilder *builder, const zwchar *path);
ZEV_API bool zTreeBuilderRmdir(TreeBuilder *builder, const zwchar *path);
ZEV_API uint64_t zTreeBuilderEntryCount(TreeBuilder *builder);
// Takes out what the spec selects and the user may not read. Null rules, or none, forbid nothing.
ZEV_API bool zTreeBuilderFilter(TreeBuilder *builder, Authdb *authdb, PathSpec *spec);
ZEV_API Tree *zTreeBuilderWrite(TreeBuilder *builder, Repository *repository);

ZEV_END
#endif
