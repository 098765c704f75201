// A status as a list of records, or told one by one; the comparison itself is a StatusScan. The
// list holds copies of all, so that it outlives scan and index.
#include "objects/work/status.hpp"

#include "common/failure.hpp"
#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/diff.hpp"
#include "zev/index.h"

#include <memory>
#include <new>

using namespace zev;

namespace {

void release_entry(void *entry) { delete static_cast<StatusEntry *>(entry); }

Oid id_of(const git_oid *id) { return id ? *git::oid(id) : Oid{}; }

std::unique_ptr<StatusEntry> make_entry(const StatusItem &item) {
    auto entry = std::make_unique<StatusEntry>();
    entry->path.reset(wide_dup(item.path, strlen(item.path)));
    if (item.from) entry->from.reset(wide_dup(item.from, strlen(item.from)));
    if (!entry->path || (item.from && !entry->from)) throw std::bad_alloc();
    entry->kind = item.kind;
    entry->word = item.word;
    entry->old_id = id_of(item.old_id);
    entry->new_id = id_of(item.new_id);
    return entry;
}

using ListPtr = Owned<StatusList, zStatusListFree>;

ListPtr make_list(uint64_t capacity) {
    ListPtr list(new StatusList{});
    if (!zVectorInitPtr(&list->entries, capacity, nullptr, release_entry)) list.reset();
    return list;
}

// The kind of one side's change, by that side's flags of a status word.
int32_t side_kind(uint32_t word, uint32_t type, uint32_t deleted, uint32_t renamed,
                  uint32_t modified) {
    if (!word) return Z_KIND_UNCHANGED;
    if (word & type) return Z_KIND_TYPECHANGE;
    if (word & deleted) return Z_KIND_DELETED;
    if (word & renamed) return Z_KIND_RENAMED;
    return word & modified ? Z_KIND_MODIFIED : Z_KIND_UNTRACKED;
}

} // namespace

// The list takes copies: libgit2's records end with the scan.
StatusList *zStatusListBuild(Index *index, PathSpec *spec) try {
    if (!index) return fail_args();
    StatusScan scan(index, spec);
    if (!scan.run()) return nullptr;
    ListPtr list = make_list(scan.size());
    if (!list) return nullptr;
    const int failed = scan.each([&](const StatusItem &item) {
        auto entry = make_entry(item);
        return zVectorPush(&list->entries, entry.get()) ? (entry.release(), 0) : -1;
    });
    if (failed) return nullptr;
    if (scan.size() == 0 && spec_options(spec) & Z_SPEC_MUST_MATCH) return raise_not_found();
    return list.release();
} catch (...) {
    return fail_thrown();
}

bool zStatusForeach(Index *index, PathSpec *spec, StatusCallback callback, void *context) try {
    if (!index || !callback) return fail_args();
    StatusScan scan(index, spec);
    if (!scan.run()) return false;
    scan.each([&](const StatusItem &item) {
        return callback(to_wide(item.path).c_str(), item.kind, context);
    });
    return true;
} catch (...) {
    return fail_thrown();
}

// Asks libgit2 itself: of one path there is nothing to save, and no index is needed.
int32_t zStatusFile(Repository *repository, const zwchar *path) try {
    if (!repository || !path) return fail_args(), -1;
    unsigned word = 0;
    const std::string name = to_utf8(path);
    const IndexLook look(repository);
    git::Index index;
    int code = git_status_file(&word, repository->handle.get(), name.c_str());
    if (!code) code = git_repository_index(out(index), repository->handle.get());
    if (code < 0) return fail_git(code), -1;
    if (is_sparse(index.get(), name.c_str())) word &= ~unsigned{GIT_STATUS_WT_DELETED};
    return kind_of(word);
} catch (...) {
    return fail_thrown(), -1;
}

uint64_t zStatusListLength(const StatusList *list) {
    if (!list) return fail_args(), 0;
    return zVectorSize(&list->entries);
}

StatusEntry *zStatusListEntry(const StatusList *list, uint64_t index) {
    if (!list) return fail_args();
    StatusEntry *entry = nullptr;
    return zVectorAt(&list->entries, index, &entry) ? entry : nullptr;
}

void zStatusListFree(StatusList *list) { free_list(list); }

StatusEntry *zStatusListLookup(StatusList *list, const zwchar *path) {
    if (!list || !path) return fail_args();
    return look_up<StatusEntry>(*list, path, [](auto *entry) { return entry->path.get(); });
}

const zwchar *zStatusEntryPath(const StatusEntry *entry) {
    if (!entry) return fail_args();
    return entry->path.get();
}

const zwchar *zStatusEntryFrom(const StatusEntry *entry) {
    if (!entry) return fail_args();
    return entry->from ? entry->from.get() : entry->path.get();
}

int32_t zStatusEntryStatus(const StatusEntry *entry) {
    if (!entry) return fail_args(), -1;
    return entry->kind;
}

const Oid *zStatusEntryOldId(const StatusEntry *entry) {
    if (!entry) return fail_args();
    return &entry->old_id;
}

const Oid *zStatusEntryNewId(const StatusEntry *entry) {
    if (!entry) return fail_args();
    return &entry->new_id;
}

int32_t zStatusEntryIndexStatus(const StatusEntry *entry) {
    if (!entry) return fail_args(), -1;
    if (entry->word & GIT_STATUS_INDEX_NEW && !(entry->word & GIT_STATUS_INDEX_TYPECHANGE))
        return Z_KIND_ADDED;
    return side_kind(entry->word, GIT_STATUS_INDEX_TYPECHANGE, GIT_STATUS_INDEX_DELETED,
                     GIT_STATUS_INDEX_RENAMED, GIT_STATUS_INDEX_MODIFIED);
}

int32_t zStatusEntryWorkdirStatus(const StatusEntry *entry) {
    if (!entry) return fail_args(), -1;
    if (entry->word & GIT_STATUS_WT_NEW && !(entry->word & GIT_STATUS_WT_TYPECHANGE))
        return Z_KIND_UNTRACKED;
    return side_kind(entry->word, GIT_STATUS_WT_TYPECHANGE, GIT_STATUS_WT_DELETED,
                     GIT_STATUS_WT_RENAMED, GIT_STATUS_WT_MODIFIED);
}

const zwchar *zStatusName(int32_t kind) {
    static constexpr const zwchar *kKeys[] = {
        u"status.sUnchanged",  u"status.sAdded",      u"status.sDeleted",    u"status.sModified",
        u"status.sRenamed",    u"status.sCopied",     u"status.sIgnored",    u"status.sUntracked",
        u"status.sTypechange", u"status.sUnreadable", u"status.sConflicted", u"status.sMissing"};
    const bool known = kind >= 0 && kind <= Z_KIND_MISSING;
    return word(known ? kKeys[kind] : u"status.sUnkonwn");
}
