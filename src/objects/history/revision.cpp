#include "objects/history/revision.hpp"

#include "common/text.hpp"
#include "common/utf.hpp"
#include "objects/store/object.hpp"
#include "zev/commit.h"
#include "zev/tree.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

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

// The entry of a name in a tree, loaded; else null, with the reason raised.
git::Object entry_object(const git::Object &tree, std::string_view name) {
    git::Object object;
    if (git_object_type(tree.get()) != GIT_OBJECT_TREE) return raise_not_found(), git::Object();
    auto *handle = reinterpret_cast<git_tree *>(tree.get());
    const git_tree_entry *entry = git_tree_entry_byname(handle, std::string(name).c_str());
    if (!entry) return raise_not_found(std::string(name)), git::Object(); // libgit2 gives no reason
    const int code = git_object_lookup(out(object), git_tree_owner(handle),
                                       git_tree_entry_id(entry), GIT_OBJECT_ANY);
    if (code < 0) fail_git(code);
    return object;
}

} // namespace

RevisionPtr zev::revision_of(Commit *commit) {
    const git_commit *handle = commit->handle.get();
    RevisionPtr revision(new Revision{.owner = commit->owner});
    revision->id = *git::oid(git_commit_id(handle));
    revision->author = user_text(git_commit_author(handle)->name);
    revision->message = user_text(git_commit_message(handle));
    revision->time = {git_commit_time(handle), 0};
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

Object *zRevisionEntry(const Revision *revision, const zwchar *path) try {
    if (!revision || !path) return fail_args();
    const Owned<Tree, zTreeFree> root(by_peeled_id<Tree>(revision->owner, &revision->id));
    if (!root) return nullptr;
    git::Object object;
    git_object_dup(out(object), git::as<git_object>(root->handle.get()));
    const std::string names = to_utf8(path);
    constexpr std::string_view kSlashes = "/\\";
    for (size_t at = 0; (at = names.find_first_not_of(kSlashes, at)) != names.npos;) {
        const size_t end = std::min(names.find_first_of(kSlashes, at), names.size());
        object = entry_object(object, std::string_view(names).substr(at, end - at));
        if (!object) return nullptr;
        at = end;
    }
    return wrap<Object>(std::move(object), revision->owner);
} catch (...) {
    return fail_thrown();
}
