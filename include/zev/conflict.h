// Conflict: what a merge could not settle, and its resolution.
//
// Ours is the local side, stage 2 of the index, theirs the incoming one, stage 3. A Conflict is
// the three entries of one path. A ConflictNode is what the user decides on: mostly one path, but
// where one side has a file and the other a directory of that name, all that depends on it. A
// ConflictAnalysis holds the nodes of one dialogue with the user, who sets their solutions;
// resolving carries them out on the work directory and the index.
#ifndef ZEV_CONFLICT_H
#define ZEV_CONFLICT_H

#include "zev/base.h"

ZEV_BEGIN

// A vector of conflicts that owns them.
typedef struct Vector ConflictList;
// One path of one side of a node.
typedef struct ConflictSide ConflictSide;

// Solutions and options of a node.
enum {
    Z_CONFLICT_USE_THEIRS = 0, // ours is displaced
    Z_CONFLICT_USE_OURS = 1,   // what stands in the work directory
    Z_CONFLICT_UNDECIDED = 2   // the node is skipped
};
enum { Z_CONFLICT_NO_TRASH = 0x1 }; // what is displaced is deleted for good

// Lent for the call, as is the index, which may be changed. 0 goes on, above 0 ends the walk with
// success, below 0 with failure.
typedef int32_t (*ConflictCallback)(Index *index, const Conflict *conflict, void *context);

// ---- One path. New and Dup copy the entries, New with one of ours and theirs at least. Getters
// lend, null where there is no such entry.
ZEV_API Conflict *zConflictNew(const IndexEntry *ancestor, const IndexEntry *ours,
                               const IndexEntry *theirs);
ZEV_API Conflict *zConflictDup(const Conflict *conflict);
ZEV_API void zConflictFree(Conflict *conflict);
ZEV_API const IndexEntry *zConflictAncestorEntry(const Conflict *conflict);
ZEV_API const IndexEntry *zConflictOurEntry(const Conflict *conflict);
ZEV_API const IndexEntry *zConflictTheirEntry(const Conflict *conflict);

// What a side did to its ancestor, as a kind of zev/status.h: 0 to 3 are told by the ids. Ours
// without any entry, or with an id of zeros and no ancestor, is untracked; theirs without any
// entry is missing.
ZEV_API int32_t zConflictOurStatus(const Conflict *conflict);
ZEV_API int32_t zConflictTheirStatus(const Conflict *conflict);

// The side's path, else the ancestor's, else the other side's; in the thread's ring.
ZEV_API const zwchar *zConflictOurPath(const Conflict *conflict);
ZEV_API const zwchar *zConflictTheirPath(const Conflict *conflict);

// ---- In an index. Add takes the place of the entries that their paths have; null for a side
// that is not there, but not for all. Get gives a new conflict. To get or remove what is not there
// is libgit2's -3, class 3.
ZEV_API bool zConflictAdd(Index *index, const IndexEntry *ancestor, const IndexEntry *ours,
                          const IndexEntry *theirs);
ZEV_API Conflict *zConflictGet(Index *index, const zwchar *path);
ZEV_API bool zConflictRemove(Index *index, const zwchar *path);
ZEV_API bool zConflictRemoveAll(Index *index);

// The conflicts that a spec (null for all) selects, in the order of paths. Null and class 3 for
// none if the spec asks for a match.
ZEV_API ConflictList *zConflictMatch(Index *index, PathSpec *spec);
ZEV_API bool zConflictWalk(Index *index, ConflictCallback callback, void *context);

// ---- Lists. New is freed by Free; Init empties a record of the caller's, Deinit ends it. Add
// takes the conflict over; on failure it stays the caller's. Entries are lent; an index beyond
// the last gives null and class 2.
ZEV_API bool zConflictListInit(ConflictList *list);
ZEV_API void zConflictListDeinit(ConflictList *list);
ZEV_API ConflictList *zConflictListNew(void);
ZEV_API void zConflictListFree(ConflictList *list);
ZEV_API uint64_t zConflictListLength(const ConflictList *list);
ZEV_API bool zConflictListAdd(ConflictList *list, Conflict *conflict);
ZEV_API Conflict *zConflictListEntry(const ConflictList *list, uint64_t index);

// ---- Nodes. A new one has solution 0, no options and no sides. Compare orders by path as the
// user's language does.
ZEV_API ConflictNode *zConflictNodeNew(const zwchar *path);
ZEV_API void zConflictNodeFree(ConflictNode *node);
ZEV_API int32_t zConflictNodeCompare(const ConflictNode *a, const ConflictNode *b);
ZEV_API const zwchar *zConflictNodePath(const ConflictNode *node);
ZEV_API bool zConflictNodeSetPath(ConflictNode *node, const zwchar *path);
ZEV_API uint32_t zConflictNodeSolution(const ConflictNode *node);
ZEV_API bool zConflictNodeSetSolution(ConflictNode *node, uint32_t solution);
ZEV_API bool zConflictNodeIsResolved(const ConflictNode *node);
ZEV_API bool zConflictNodeSetResolved(ConflictNode *node, bool resolved);

// IsOptionOn: all of the bits are set; IsOptionOff: none is.
ZEV_API uint32_t zConflictNodeOptions(const ConflictNode *node);
ZEV_API bool zConflictNodeSetOptions(ConflictNode *node, uint32_t options);
ZEV_API bool zConflictNodeIsOptionOn(const ConflictNode *node, uint32_t bits);
ZEV_API bool zConflictNodeSetOptionOn(ConflictNode *node, uint32_t bits);
ZEV_API bool zConflictNodeIsOptionOff(const ConflictNode *node, uint32_t bits);
ZEV_API bool zConflictNodeSetOptionOff(ConflictNode *node, uint32_t bits);

// Sides, each path once. Of a side: its entry and its ancestor, lent and either of them null; its
// status; its path. A side that there isn't has null, status -1 and the node's path. Ours is
// missing where it was added or modified and its file is gone from the work directory.
ZEV_API uint64_t zConflictNodeOurCount(const ConflictNode *node);
ZEV_API const ConflictSide *zConflictOurSide(const ConflictNode *node, uint64_t index);
ZEV_API const IndexEntry *zConflictNodeOurEntry(const ConflictNode *node, uint64_t index);
ZEV_API const IndexEntry *zConflictNodeOurAncestor(const ConflictNode *node, uint64_t index);
ZEV_API int32_t zConflictNodeOurStatus(const ConflictNode *node, uint64_t index);
ZEV_API const zwchar *zConflictNodeOurPath(const ConflictNode *node, uint64_t index);
ZEV_API uint64_t zConflictNodeTheirCount(const ConflictNode *node);
ZEV_API const ConflictSide *zConflictTheirSide(const ConflictNode *node, uint64_t index);
ZEV_API const IndexEntry *zConflictNodeTheirEntry(const ConflictNode *node, uint64_t index);
ZEV_API const IndexEntry *zConflictNodeTheirAncestor(const ConflictNode *node, uint64_t index);
ZEV_API int32_t zConflictNodeTheirStatus(const ConflictNode *node, uint64_t index);
ZEV_API const zwchar *zConflictNodeTheirPath(const ConflictNode *node, uint64_t index);

// AddPair adds both sides of a conflict, as far as they have an entry or an ancestor, in place of
// what the node knew of its path. AddOurs and AddTheirs add one, of entry and ancestor, of which
// one may be null; a path that is there already stays as it is. Everything is copied.
ZEV_API bool zConflictNodeAddPair(ConflictNode *node, Index *index, const Conflict *conflict);
ZEV_API bool zConflictNodeAddOurs(ConflictNode *node, Index *index, const IndexEntry *entry,
                                  const IndexEntry *ancestor);
ZEV_API bool zConflictNodeAddTheirs(ConflictNode *node, const IndexEntry *entry,
                                    const IndexEntry *ancestor);

// What kind of conflict it is, in the current catalogue: a file or a folder in the way, else what
// either side did. Lent until sides are added or the catalogue changes.
ZEV_API const zwchar *zConflictNodeType(ConflictNode *node);

// Names for the user, "*Invalid Solution*" and "*Invalid Option*" where there is none.
ZEV_API const zwchar *zResolveSolutionName(uint32_t solution);
ZEV_API const zwchar *zResolveOptionName(uint32_t option);

// ---- Analysis. It owns its nodes, in the order in which they came up; getters lend. Index and
// notify are lent to it. A position beyond the last gives null and class 2.
ZEV_API ConflictAnalysis *zConflictAnalysisNew(Index *index);
ZEV_API void zConflictAnalysisFree(ConflictAnalysis *analysis);
ZEV_API uint64_t zConflictAnalysisLength(const ConflictAnalysis *analysis);
ZEV_API ConflictNode *zConflictAnalysisEntry(const ConflictAnalysis *analysis, uint64_t position);
ZEV_API const Notify *zConflictAnalysisNotify(const ConflictAnalysis *analysis);
ZEV_API bool zConflictAnalysisSetNotify(ConflictAnalysis *analysis, const Notify *notify);

// Puts a conflict into the node of its path, or of a path above it, else into a new one, with
// what stands in its way on our side.
ZEV_API bool zConflictAnalysisInsert(ConflictAnalysis *analysis, const Conflict *conflict);

// The analysis of what a spec selects; it no longer refers to the index, so that the lock may be
// let go while the user thinks. Null and class 3 for none if the spec asks for a match.
ZEV_API ConflictAnalysis *zConflictAnalyze(Index *index, PathSpec *spec);

// Carries one node out, unless it is resolved or undecided: true then too. What is displaced goes
// to the trash. Where the index no longer holds the node's conflict as it was, or tracks more in
// its way, the node fails and nothing is touched. A node that fails keeps its conflict in the index
// and can be tried again; what was done in the work directory until then stays. The index is not
// written.
ZEV_API bool zConflictNodeResolve(Index *index, ConflictNode *node);

// All nodes, each told as resolved or failed; the index is written. False only if that failed: the
// nodes tell which of them are resolved.
ZEV_API bool zConflictResolve(Index *index, ConflictAnalysis *analysis);

// Keeps ours for all that a spec (null for all) selects, told by the spec's notify.
ZEV_API bool zIndexResolve(Index *index, PathSpec *spec);

ZEV_END
#endif
