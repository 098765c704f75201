// Conflicts as an index holds them: the entries of one path at the stages 1 (ancestor), 2 (ours)
// and 3 (theirs), each of which may be missing.
#include "objects/conflict/conflict.hpp"

#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/strict.hpp"
#include "zev/status.h"

#include <array>
#include <cstring>
#include <new>

using namespace zev;

namespace {

using ListPtr = Owned<ConflictList, zConflictListFree>;

void release_conflict(void *conflict) { delete static_cast<Conflict *>(conflict); }

bool copy_entry(EntryPtr &to, const git_index_entry *from) {
    if (!from) return true;
    if (!from->path) return fail_args();
    to.reset(zIndexEntryNew(zev_entry(from)));
    return to != nullptr;
}

// The first of three entries that is there.
const zwchar *first_path(const EntryPtr &a, const EntryPtr &b, const EntryPtr &c) {
    const EntryPtr &entry = a ? a : b ? b : c;
    return zIndexEntryPath(entry.get());
}

int32_t change_of(const EntryPtr &side, const EntryPtr &ancestor, int32_t absent) {
    if (!side) return ancestor ? int32_t{Z_KIND_DELETED} : absent;
    if (!ancestor) return Z_KIND_ADDED;
    const bool same = git_oid_equal(&git_entry(side.get())->id, &git_entry(ancestor.get())->id);
    return same ? Z_KIND_UNCHANGED : Z_KIND_MODIFIED;
}

// Hands over the three entries of each conflict, in the order of paths, until `visit` says false;
// whether it never did. The entries of a path stand side by side.
template <class F> bool each_conflict(git_index *index, F visit) {
    const size_t count = git_index_entrycount(index);
    for (size_t i = 0; i < count;) {
        const git_index_entry *entry = git_index_get_byindex(index, i);
        if (git_index_entry_stage(entry) == 0) {
            ++i;
            continue;
        }
        const char *path = entry->path;
        std::array<const git_index_entry *, 4> stages{};
        for (; i < count; ++i) {
            entry = git_index_get_byindex(index, i);
            if (strcmp(entry->path, path) != 0) break;
            stages[static_cast<size_t>(git_index_entry_stage(entry))] = entry;
        }
        if (!visit(path, stages[1], stages[2], stages[3])) return false;
    }
    return true;
}

// Keeps the names of the index in step with a path whose conflict came or went; without, the next
// new name would read them all again. May throw.
void keep_names(Index *index, const char *path, size_t before) {
    git_index *handle = index->handle.get();
    const size_t count = git_index_entrycount(handle);
    if (index->names && count >= before) index->names->entered(handle, path, count - before);
    if (index->names && count < before) index->names->left(handle, path, before - count);
}

// Copies of what a spec selects; null with the reason raised.
ListPtr read_conflicts(Index *index, PathSpec *spec) {
    ListPtr list(zConflictListNew());
    if (!list) return nullptr;
    const bool whole =
        each_conflict(index->handle.get(), [&](const char *path, auto *a, auto *o, auto *t) {
            if (!spec_matches(spec, path)) return true;
            ConflictPtr conflict = conflict_of(a, o, t);
            return conflict && zConflictListAdd(list.get(), conflict.get()) && conflict.release();
        });
    if (!whole) list.reset();
    return list;
}

} // namespace

namespace zev {

ConflictPtr conflict_of(const git_index_entry *ancestor, const git_index_entry *ours,
                        const git_index_entry *theirs) {
    ConflictPtr conflict(new (std::nothrow) Conflict{});
    if (!conflict) return fail_memory(), nullptr;
    const bool copied = copy_entry(conflict->ancestor, ancestor) &&
                        copy_entry(conflict->ours, ours) && copy_entry(conflict->theirs, theirs);
    if (!copied) conflict.reset();
    return conflict;
}

} // namespace zev

// ---- One path

Conflict *zConflictNew(const IndexEntry *ancestor, const IndexEntry *ours,
                       const IndexEntry *theirs) {
    if (!ours && !theirs) return fail_args();
    return conflict_of(git_entry(ancestor), git_entry(ours), git_entry(theirs)).release();
}

Conflict *zConflictDup(const Conflict *conflict) {
    if (!conflict) return fail_args();
    return conflict_of(git_entry(conflict->ancestor.get()), git_entry(conflict->ours.get()),
                       git_entry(conflict->theirs.get()))
        .release();
}

void zConflictFree(Conflict *conflict) { delete conflict; }

const IndexEntry *zConflictAncestorEntry(const Conflict *conflict) {
    return conflict ? conflict->ancestor.get() : fail_args();
}
const IndexEntry *zConflictOurEntry(const Conflict *conflict) {
    return conflict ? conflict->ours.get() : fail_args();
}
const IndexEntry *zConflictTheirEntry(const Conflict *conflict) {
    return conflict ? conflict->theirs.get() : fail_args();
}

// A file that no tree names has no id yet.
int32_t zConflictOurStatus(const Conflict *conflict) {
    if (!conflict) return fail_args(), -1;
    const EntryPtr &ours = conflict->ours;
    if (ours && !conflict->ancestor && git_oid_is_zero(&git_entry(ours.get())->id))
        return Z_KIND_UNTRACKED;
    return change_of(ours, conflict->ancestor, Z_KIND_UNTRACKED);
}

int32_t zConflictTheirStatus(const Conflict *conflict) {
    if (!conflict) return fail_args(), -1;
    return change_of(conflict->theirs, conflict->ancestor, Z_KIND_MISSING);
}

const zwchar *zConflictOurPath(const Conflict *conflict) {
    if (!conflict) return fail_args();
    return first_path(conflict->ours, conflict->ancestor, conflict->theirs);
}

const zwchar *zConflictTheirPath(const Conflict *conflict) {
    if (!conflict) return fail_args();
    return first_path(conflict->theirs, conflict->ancestor, conflict->ours);
}

// ---- In an index

// A partial client may lack the bytes of each side, and half a conflict would be none.
bool zConflictAdd(Index *index, const IndexEntry *ancestor, const IndexEntry *ours,
                  const IndexEntry *theirs) try {
    if (!index || (!ancestor && !ours && !theirs)) return fail_args();
    const char *path = nullptr;
    for (const IndexEntry *entry : {ancestor, ours, theirs}) {
        if (!entry) continue;
        const char *own = git_entry(entry)->path;
        if (!own) return fail_args();
        if (!check_path(own)) return false;
        if (path && strcmp(path, own) != 0) index->names.reset(); // of several paths
        path = own;
    }
    const size_t before = git_index_entrycount(index->handle.get());
    const StrictOff partial;
    int code = git_index_conflict_add(index->handle.get(), git_entry(ancestor), git_entry(ours),
                                      git_entry(theirs));
    index->dirty = true; // a part of it may have been entered
    keep_names(index, path, before);
    return code < 0 ? fail_git(code) : true;
} catch (...) {
    return fail_thrown();
}

Conflict *zConflictGet(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    const git_index_entry *ancestor, *ours, *theirs;
    int code = git_index_conflict_get(&ancestor, &ours, &theirs, index->handle.get(),
                                      to_utf8(path).c_str());
    if (code < 0) return fail_git(code);
    return conflict_of(ancestor, ours, theirs).release();
} catch (...) {
    return fail_thrown();
}

bool zConflictRemove(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    const std::string name = to_utf8(path);
    const git_index_entry *ancestor, *ours, *theirs;
    int code = git_index_conflict_get(&ancestor, &ours, &theirs, index->handle.get(), name.c_str());
    if (code == GIT_EEXISTS) return git_error_clear(), true;
    const size_t before = git_index_entrycount(index->handle.get());
    if (!code) code = git_index_conflict_remove(index->handle.get(), name.c_str());
    if (code < 0) return fail_git(code);
    keep_names(index, name.c_str(), before);
    return index->dirty = true;
} catch (...) {
    return fail_thrown();
}

bool zConflictRemoveAll(Index *index) {
    if (!index) return fail_args();
    int code = git_index_conflict_cleanup(index->handle.get());
    index->names.reset();
    index->dirty = true;
    return code < 0 ? fail_git(code) : true;
}

ConflictList *zConflictMatch(Index *index, PathSpec *spec) try {
    if (!index) return fail_args();
    ListPtr list = read_conflicts(index, spec);
    if (list && zVectorIsEmpty(list.get()) && spec_options(spec) & Z_SPEC_MUST_MATCH)
        return raise_not_found();
    return list.release();
} catch (...) {
    return fail_thrown();
}

// Over copies: the callback may resolve what it is shown, which moves the entries behind it.
bool zConflictWalk(Index *index, ConflictCallback callback, void *context) try {
    if (!index || !callback) return fail_args();
    ListPtr list = read_conflicts(index, nullptr);
    if (!list) return false;
    int32_t result = 0;
    for (uint64_t i = 0; i < zVectorSize(list.get()) && result == 0; ++i)
        result = callback(index, zConflictListEntry(list.get(), i), context);
    return result >= 0;
} catch (...) {
    return fail_thrown();
}

// ---- Lists

bool zConflictListInit(ConflictList *list) {
    if (!list) return fail_args();
    return zVectorInitPtr(list, 0, nullptr, release_conflict);
}

void zConflictListDeinit(ConflictList *list) {
    if (list) zVectorCleanup(list);
}

ConflictList *zConflictListNew(void) { return zVectorNewPtr(0, nullptr, release_conflict); }

void zConflictListFree(ConflictList *list) { zVectorFree(list); }

uint64_t zConflictListLength(const ConflictList *list) {
    if (!list) return fail_args(), 0;
    return zVectorSize(list);
}

bool zConflictListAdd(ConflictList *list, Conflict *conflict) {
    if (!list || !conflict) return fail_args();
    return zVectorPush(list, conflict);
}

Conflict *zConflictListEntry(const ConflictList *list, uint64_t index) {
    if (!list) return fail_args();
    Conflict *conflict = nullptr;
    return zVectorAt(list, index, &conflict) ? conflict : nullptr;
}
