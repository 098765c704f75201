// One commit as its readers see it: words without control characters, and its changes, which come
// from the database of records where they are known, else from the commit, and are kept there.
#include "objects/history/revision.hpp"

#include "common/text.hpp"
#include "common/utf.hpp"
#include "objects/store/object.hpp"
#include "zev/commit.h"

#include <cstring>

using namespace zev;

namespace {

// A text of a commit, as the records can hold it.
Wide user_text(const char *text) {
    Wide copy(wide_dup(text, strlen(text)));
    if (!copy) throw std::bad_alloc();
    blank_controls(copy.get());
    return copy;
}

// From the record, or from the commit, which then gets its record.
void find_changes(Revision *revision) {
    const RevdbPtr db(zRevdbOpen(revision->owner));
    if (!db) return;
    revision->changes.reset(zRevdbChanges(db.get(), &revision->id));
    if (revision->changes) return;
    const Owned<Commit, zCommitFree> commit(zCommitByid(revision->owner, &revision->id));
    if (!commit) return;
    revision->changes.reset(zCommitChanges(commit.get(), nullptr, nullptr));
    if (revision->changes) zRevdbInsert(db.get(), &revision->id, revision);
}

} // namespace

RevisionPtr zev::words_of(const Commit *commit) {
    const git_commit *handle = commit->handle.get();
    RevisionPtr revision(new Revision{.owner = commit->owner});
    revision->id = *git::oid(git_commit_id(handle));
    revision->author = user_text(git_commit_author(handle)->name);
    revision->message = user_text(git_commit_message(handle));
    revision->time = {git_commit_time(handle), 0};
    return revision;
}

RevisionPtr zev::revision_of(Commit *commit) {
    RevisionPtr revision = words_of(commit);
    revision->changes.reset(zCommitChanges(commit, nullptr, nullptr));
    return revision->changes ? std::move(revision) : nullptr;
}

Revision *zRevisionDup(const Revision *revision) try {
    if (!revision) return fail_args();
    RevisionPtr copy(new Revision{revision->owner, revision->id, {}, {}, revision->time, {}});
    copy->author.reset(zStrdupW(revision->author.get()));
    copy->message.reset(zStrdupW(revision->message.get()));
    if (!copy->author || !copy->message) return nullptr;
    if (revision->changes) copy->changes = diff_list_dup(revision->changes.get());
    return copy.release();
} catch (...) {
    return fail_thrown();
}

void zRevisionFree(Revision *revision) { delete revision; }

const Oid *zRevisionId(const Revision *revision) { return revision ? &revision->id : fail_args(); }
const zwchar *zRevisionAuthor(const Revision *revision) {
    return revision ? revision->author.get() : fail_args();
}
const zwchar *zRevisionMessage(const Revision *revision) {
    return revision ? revision->message.get() : fail_args();
}
const Time *zRevisionTime(const Revision *revision) {
    return revision ? &revision->time : fail_args();
}

DiffList *zRevisionChanges(Revision *revision) {
    if (!revision) return fail_args();
    if (!revision->changes) find_changes(revision);
    return revision->changes.get();
}

DiffList *zRevisionMatch(Revision *revision, PathSpec *paths) try {
    const DiffList *changes = zRevisionChanges(revision);
    if (!changes) return nullptr;
    if (!paths) return diff_list_dup(changes).release();
    DiffListPtr list = diff_list_filtered(changes, paths);
    if (!list) raise_not_found();
    return list.release();
} catch (...) {
    return fail_thrown();
}
