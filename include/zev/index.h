// Index: the staging area of a working copy, its lock, and the operations on it.
//
// New, Head and By... give what the caller returns through zIndexFree; getters lend. Changes stay
// in memory until zIndexWrite; those of a locked index that was not written are dropped by its
// zIndexFree. One thread at a time. Libgit2's failures are raised with its code and text.
//
// Every path that is to enter an index is checked: relative, parts split by single forward
// slashes, none of them `.`, `..` or a spelling of `.git`, well formed and without control
// characters, else class 2; and no other entry may differ from it in case only, else class 4.
#ifndef ZEV_INDEX_H
#define ZEV_INDEX_H

#include "zev/base.h"

ZEV_BEGIN

// The entry is lent for the call; a negative result ends the walk, which then gives false.
typedef int32_t (*IndexCallback)(const IndexEntry *entry, void *context);

// Alloc takes over a libgit2 handle. New, By... and Dup make indexes in memory; ByRef takes the
// tree of a reference (null for HEAD) and is empty while the head is not born.
ZEV_API Index *zIndexAlloc(void *handle, Repository *repository);
ZEV_API Index *zIndexNew(Repository *repository);
ZEV_API Index *zIndexByref(Repository *repository, const zwchar *reference);
ZEV_API Index *zIndexBytree(Tree *tree);
ZEV_API Index *zIndexDup(Index *index);

// The repository's own index, of which libgit2 has one in memory whoever asks. With `lock` what a
// killed writer left is cleared away, the lock on the file taken, and the file read anew; a lock
// that is held elsewhere gives null and class 7 within a second. Freeing lets the lock go.
ZEV_API Index *zIndexHead(Repository *repository, bool lock);
ZEV_API void zIndexFree(Index *index);

// Read takes the file if it changed, or in any case by `force`. Write first completes the lock's
// copy of the file as it was; once it is done no recovery goes back to that.
ZEV_API bool zIndexClear(Index *index);
ZEV_API bool zIndexRead(Index *index, bool force);
ZEV_API bool zIndexWrite(Index *index);

// FindPrefix gives the position of the first entry below a prefix, class 3 if there is none.
ZEV_API Repository *zIndexOwner(const Index *index);
ZEV_API const zwchar *zIndexPath(const Index *index);
ZEV_API bool zIndexFindPrefix(uint64_t *position, Index *index, const zwchar *prefix);
ZEV_API bool zIndexWalk(Index *index, IndexCallback callback, void *context);

// The index as a tree, without entries that are only planned; class 4 with the path for a file
// below another one. That as a commit on a reference (null for none), synced.
ZEV_API Tree *zIndexWriteTree(Index *index);
ZEV_API Commit *zIndexWriteCommit(Index *index, const zwchar *reference, const zwchar *author,
                                  const zwchar *message);

// zStatusListBuild; whether a path is tracked, changed or not, or ignored.
ZEV_API StatusList *zIndexStatus(Index *index, PathSpec *spec);
ZEV_API bool zIndexIsStaged(Index *index, const zwchar *path);

// The paths of entries without conflict that a spec (null for all) selects, as a path list; null
// and class 3 for none if the spec asks for a match.
ZEV_API Vector *zIndexMatch(Index *index, PathSpec *spec);
ZEV_API bool zIndexHasConflicts(const Index *index);
ZEV_API bool zIndexPathIsConflict(Index *index, const zwchar *path);

// Entries. New and Dup copy, to be freed by zIndexEntryFree; those that an index gives are lent
// until it changes. AsZev and AsGit turn into libgit2's git_index_entry and back: it is the same
// record.
ZEV_API IndexEntry *zIndexEntryNew(const IndexEntry *entry);
ZEV_API IndexEntry *zIndexEntryDup(const IndexEntry *entry);
ZEV_API void zIndexEntryFree(IndexEntry *entry);
ZEV_API IndexEntry *zIndexEntryAsZev(void *entry);
ZEV_API void *zIndexEntryAsGit(IndexEntry *entry);

// From the file at a path below the work directory, without an id. No file is class 3, code 2; a
// directory code 21; where the system refuses to tell, only the path is set.
ZEV_API IndexEntry *zIndexEntryStat(Index *index, const zwchar *path);

// Stage 0 to 3, else class 2.
ZEV_API bool zIndexEntrySetStage(IndexEntry *entry, int32_t stage);
ZEV_API bool zIndexEntryAdd(Index *index, const IndexEntry *entry);
ZEV_API uint64_t zIndexEntryCount(const Index *index);

// Bypath gives the entry at stage 0, else ours of a conflict, stage 2. None is class 3.
ZEV_API const IndexEntry *zIndexEntryByindex(Index *index, uint64_t position);
ZEV_API const IndexEntry *zIndexEntryBypath(Index *index, const zwchar *path);

// What an entry holds. The path lives in the thread's ring, the id in the entry; the size is
// that of the file, modulo 2^32 bytes.
ZEV_API Time *zIndexEntryCTime(Time *out, const IndexEntry *entry);
ZEV_API Time *zIndexEntryMTime(Time *out, const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryDev(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryIno(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryMode(const IndexEntry *entry);
ZEV_API const Oid *zIndexEntryID(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryUID(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntryGID(const IndexEntry *entry);
ZEV_API uint32_t zIndexEntrySize(const IndexEntry *entry);
ZEV_API const zwchar *zIndexEntryPath(const IndexEntry *entry);
ZEV_API int32_t zIndexEntryStage(const IndexEntry *entry);
ZEV_API uint16_t zIndexEntryFlags(const IndexEntry *entry);
ZEV_API uint16_t zIndexEntryFlagsEx(const IndexEntry *entry);
ZEV_API bool zIndexEntryIsConflict(const IndexEntry *entry);

// One file into the object store and the index, as it is now: links as links, regular files as
// 0100644 unless an entry says otherwise. No file is class 3, one behind a link class 2. Of a
// directory only the commit of a repository of its own can enter.
ZEV_API bool zIndexAddBypath(Index *index, const zwchar *path);

// A path's entries at every stage; all entries below a directory, unless the path has an entry
// itself. Nothing to remove is no failure.
ZEV_API bool zIndexRemoveEntry(Index *index, const zwchar *path);
ZEV_API bool zIndexRemoveDirectory(Index *index, const zwchar *path);

// Adds what the spec selects and what differs from the index; untracked files that are ignored
// stay out. Each file is told by the spec's notify: added, or skipped when it is gone, is no
// file, or its path may not enter. A directory with a `.git` of its own, and one that is tracked as
// a submodule, is another repository's: its files stay out, and it is told as skipped. A copied
// drawing whose path may enter is given a table of its own first. A file that can't be read ends
// it: false, told as aborted. A user break: class 6, told as canceled. No patterns: class 3.
ZEV_API bool zIndexAdd(Index *index, PathSpec *spec);

// Takes changes and losses of tracked files into the index, without telling. A conflict whose file
// is gone stays one. No patterns: class 3.
ZEV_API bool zIndexRefresh(Index *index, PathSpec *spec);

// Moves a file or directory on disk, and the entries of what is tracked there. Untracked and
// ignored files only move. False with nothing moved when there is no source, when the target is
// in the way (code 17), when a new path may not enter, or for a conflict or a submodule (class 2).
// Where entering what has moved fails, or the index can't be written afterwards, it stays moved on
// disk: the caller's to move back.
ZEV_API bool zIndexRename(Index *index, const zwchar *from, const zwchar *to);

// Takes what the spec selects into the trash and out of the index, whose file follows on the way.
// A literal spec names the paths themselves, directories too, which go as a whole; without
// patterns it names none. Any other selects what a status lists, untracked files too unless it
// leaves them out. Each is told as deleted, or skipped when it could not be taken and the user,
// asked each time, doesn't retry. Told as aborted when he cancels there or an entry can't be
// removed, as canceled after a user break. True all the same: write what was done. False only
// for a null argument.
ZEV_API bool zIndexRemove(Index *index, PathSpec *spec);

// Gives what the spec selects the state that HEAD has; in a conflict, theirs is taken. Files that
// were added, and what stands in the way or was changed, go to the trash; keep-files of
// directories still in use stay. Each path is told as deleted, restored, reverted or failed; a
// failure ends nothing. False when there is no status, told as done. A user break is told as
// canceled and gives true: write what was done.
ZEV_API bool zIndexRevert(Index *index, PathSpec *spec);

// Commits the whole index, or with a spec HEAD and the selected changes alone, staging them on
// the way; whatever else is staged stays so. What is committed is what the files hold, also with
// Z_SPEC_INDEX_ONLY, which selects by what is staged. Of two paths that differ in case only, that
// of the index takes the place of HEAD's. New files whose names can't enter are told by the spec's
// notify as skipped, unless a pattern names one exactly. Writes the index, syncs, moves the
// reference, and syncs again. Null when it failed: class 3 without changes, class 2 with path and
// state for one that can't be committed, such as a conflict. A locked index's file is then as it
// was, but for one that was written under this lock before: there what was staged on the way stays
// so. Where HEAD has moved since the index was read it fails as well: the commit would take back
// what came in.
ZEV_API Commit *zIndexCommit(Index *index, PathSpec *spec, const zwchar *reference,
                             const zwchar *author, const zwchar *message);

// The same with further parents behind the reference's tip, for a merge; see zCommitCreateWith.
ZEV_API Commit *zIndexCommitWith(Index *index, PathSpec *spec, const zwchar *reference,
                                 const zwchar *author, const zwchar *message, const Oid *others,
                                 uint64_t count);

// Makes and adds an empty `.gitkeep` in each directory below and at `path`, if that is one, and
// in each above it, the work directory itself left out. What has that name already, a link too,
// is added as it is. Directories of other repositories get none, nor those that are ignored.
ZEV_API bool zIndexFixupGitkeep(Index *index, const zwchar *path);

// Gives the files of entries that a spec (null for all) selects their write bits, or takes them
// away, by the rules of the copy's user (zev/authdb.h); nothing happens where these can't be read,
// nor without any. What fails at one file is raised, and the others go on.
ZEV_API bool zIndexFixupFilemode(Index *index, PathSpec *spec);

ZEV_END
#endif
