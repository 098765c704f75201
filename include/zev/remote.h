// Remote: the session with the server's repository of which this one is a working copy, and what is
// brought from there and sent to it.
//
// The server is the remote "origin" of the repository's configuration: a repository that has one is
// a working copy of a client. A Remote lives for one operation and holds one connection, used by
// each of its steps; it belongs to one thread. The login is that of the process (zev/login.h).
//
// What is downloaded goes into the stores of the repository, never into the work directory, and
// only what they lack is asked for. All of it can be asked for again: after a failure what has come
// stays. `notify` may be null. It is told of a failure once, by the text of the error record, but
// for a break of the user's, class 6, which is told by whoever runs the operation. What the server
// refuses, or what it is that can't be reached, is class 15 with the status as code, what it says
// that makes no sense class 15 with code -1. Null arguments are class 2, logged, and not told.
#ifndef ZEV_REMOTE_H
#define ZEV_REMOTE_H

#include "zev/base.h"

ZEV_BEGIN

// Setup writes the remote into the configuration; one that is there is class 4. Open finds it, or
// gives null with libgit2's error: the test for a working copy of a client. The repository is lent.
ZEV_API Remote *zRemoteSetup(Repository *repository, const zwchar *url);
ZEV_API Remote *zRemoteOpen(Repository *repository);
ZEV_API void zRemoteFree(Remote *remote);

// Lent.
ZEV_API const zwchar *zRemoteUrl(const Remote *remote);
ZEV_API const zwchar *zRemoteName(const Remote *remote);

// Milliseconds of silence before a request is given up, 30,000 at first; another value holds from
// the next request on, which opens a new connection.
ZEV_API uint64_t zRemoteTimeout(const Remote *remote);
ZEV_API bool zRemoteSetTimeout(Remote *remote, uint64_t milliseconds);

// The request of the session, empty but for the account, lent: the next call empties it again, and
// with it goes the answer to what was sent. Null when it can't be made. Disconnect drops it.
ZEV_API HttpRequest *zRemoteConnect(Remote *remote, const Notify *notify);
ZEV_API bool zRemoteDisconnect(Remote *remote);
// Whether the user broke the last request off; class 2 before the first.
ZEV_API bool zRemoteUsrbrk(const Remote *remote);

// Whether the server's repository is the one of this working copy. A copy that has no identifier
// yet takes the server's.
ZEV_API bool zRemoteVerifyRepo(Remote *remote, const Notify *notify);
// Brings the copy's own rules of paths up to date (zev/authdb.h).
ZEV_API bool zRemoteUpdateAuth(Remote *remote, const Notify *notify);

// ---- Downloads

// The server's references: its branches become tracking ones. A symbolic one that can't be made is
// left out, as is each that would be HEAD, or a branch of this copy. Those that the server no
// longer has stay; their objects are not fetched.
ZEV_API bool zRemoteDownloadRefs(Remote *remote, const Notify *notify);

// One object, by its id, which its bytes must have. Nested fetches what it leads to as well, until
// it is of the type: a tag's target, a commit's tree.
ZEV_API bool zRemoteDownloadObject(Remote *remote, const Oid *id, const Notify *notify);
ZEV_API bool zRemoteDownloadNested(Remote *remote, const Oid *id, int32_t type,
                                   const Notify *notify);

// The objects of {"query": {"entries": [{"id": ID}, ...]}}, as one pack, in whole or not at all.
ZEV_API bool zRemoteDownloadPack(Remote *remote, const Json *query, const Notify *notify);
// The commits of a history, newest first, `limit` 0 for all; without their trees.
ZEV_API bool zRemoteDownloadCommits(Remote *remote, const Oid *head, uint64_t limit,
                                    const Notify *notify);

// What a tree holds of a type (or of any, Z_OBJECT_ANY), on its own level or on all. Files that the
// user may not read are listed and not fetched. `denied` and `readonly`, which may be null, get the
// listed entries of files that may not be read, or not be written, as arrays for the caller to
// free; each stays as it is where there are none, and on failure.
ZEV_API bool zRemoteDownloadTree(Remote *remote, const Oid *id, bool recursive, int32_t type,
                                 Json **denied, Json **readonly, const Notify *notify);
// The same on all levels, with the trees on the way, of whatever leads to a tree; of files those
// that the spec selects, which may be null for all. Its notify is told.
ZEV_API bool zRemoteDownloadMatches(Remote *remote, const Oid *id, int32_t type, PathSpec *spec);

// Records for the revision database: one, or those of a history, newest first. One of a list that
// makes no sense is told and left out.
ZEV_API bool zRemoteDownloadRevision(Remote *remote, const Oid *id, const Notify *notify);
ZEV_API bool zRemoteDownloadRevlist(Remote *remote, const Oid *head, uint64_t limit,
                                    const Notify *notify);

// Rows of a table, by a vector of DrawingKey; nothing is told. Keys that the server lacks are left
// out. A table keeps the path that it serves, and the higher tag.
ZEV_API bool zRemoteDownloadTable(Remote *remote, Table *table, const Vector *keys,
                                  const Notify *notify);

// ---- Uploads. Nothing is told: failures stay in the error record.

// One object of the repository; of several an array of ids, sent as one pack.
ZEV_API bool zRemoteUploadObject(Remote *remote, const Oid *id, const Notify *notify);
ZEV_API bool zRemoteUploadPack(Remote *remote, const Json *ids, const Notify *notify);

// ---- Operations of a working copy. Each tells its start and exactly one end by the notify of its
// spec: done, canceled by the user, or aborted. First of all it puts back what a process left that
// died. From its locks on a failure puts index, branch and tracking reference back; what was
// downloaded stays.

// To the server's branch, or to the target of the spec (null for the newest, of everything). What
// comes in lands as zRepositoryCheckout tells; files that the user may not read are not in the
// copy, those that he may not write are read-only. A server without a commit is a success. A break
// while files come in is told as canceled, and gives true: what was done stays.
//
// Commits that the server never got are told, and what they did becomes a change of the user's, not
// committed: the branch gets a commit without it first, and index and files stay. So does what the
// server's branch had and has no more, when that went back. With conflicts in the index neither can
// be: class -1.
ZEV_API bool zRemoteUpdate(Remote *remote, CheckSpec *spec);

// What an update would bring that the user may read, of what a spec (null for all) selects, for the
// caller to free. Without `refresh` nothing is asked: it is of the state that is known here. Null
// on failure; nothing goes back then, what was fetched is as good as ever.
ZEV_API DiffList *zRemoteListUpdates(Remote *remote, PathSpec *paths, bool refresh);

// Brings the copy up to date, commits what the spec selects (null for what is staged, as is one
// with Z_SPEC_INDEX_ONLY and no patterns, whose notify is told), as zIndexCommit, and sends it; the
// server makes a commit of its own. True also when the update has brought in all that was to be
// committed, which is told. Without changes: class 3, and nothing is asked. Conflicts, and a break
// in the update, are the end of it.
ZEV_API bool zRemoteCommit(Remote *remote, PathSpec *paths, const zwchar *author,
                           const zwchar *message);

// A new working copy of the project at `url`, on the spec's branch (its full name; none and HEAD
// are master), filled by an update, which tells its own start and the end of both. A place that is
// taken is asked about. What was made of a copy goes when it can't be set up; one that is only not
// filled stays, to be updated.
ZEV_API bool zRemoteCheckout(const zwchar *url, const zwchar *path, CheckSpec *spec);

// Makes what the spec selects as it was at its target, or is in the newest, and gives the branch a
// commit in which that is as the server has it now: the difference shows as the user's change. What
// he has changed is asked about before; when he says so it goes to the trash. On failure files stay
// as far as they have come.
ZEV_API bool zRemoteReset(Remote *remote, CheckSpec *spec);

// ---- What the server has not, by what is here: nothing is asked, told, locked or changed.

typedef struct RemoteStanding {
    uint64_t unsent; // commits of the branch that the server never got
    bool went_back;  // the server's branch no longer leads to where the copy came to
    Oid from, to;    // then: where it was, and where it is
} RemoteStanding;
// Takes each of these commits, lent, the newest first, as long as it gives true.
typedef bool (*UnsentCallback)(const Commit *commit, void *context);

// Of the branch that HEAD names; `callback` may be null. One that follows none of the server's is
// class 3. Of a server's history that isn't here nothing is known, and it counts as gone on.
ZEV_API bool zRemoteStanding(RemoteStanding *out, Repository *repository, UnsentCallback callback,
                             void *context);
// The tree that an update goes out from, for the caller to free: the branch's without what the
// server has not. Where the server's branch went back, that is no commit's yet, and the tree goes
// into the store. Null on failure, also where a part of it isn't here.
ZEV_API Tree *zRemoteGround(Repository *repository);

ZEV_END
#endif
