// Diff lists as plain records: reading, copying and filtering them.
#include "objects/store/diff.hpp"

#include "common/utf.hpp"
#include "zev/status.h"

#include <new>

using namespace zev;

namespace {

void release_entry(void *entry) { delete static_cast<DiffEntry *>(entry); }

std::unique_ptr<DiffFile> dup_file(const DiffFile *file) {
    if (!file) return nullptr;
    auto copy = std::make_unique<DiffFile>();
    copy->id = file->id;
    copy->size = file->size;
    copy->flags = file->flags;
    copy->mode = file->mode;
    copy->id_abbrev = file->id_abbrev;
    copy->path.reset(zStrdupW(file->path.get()));
    if (!copy->path) throw std::bad_alloc();
    return copy;
}

const DiffFile *file_of(const DiffEntry *entry, bool old_side) {
    const auto &own = old_side ? entry->old_file : entry->new_file;
    const auto &other = old_side ? entry->new_file : entry->old_file;
    if (own || other) return own ? own.get() : other.get();
    static const DiffFile none{{}, Wide(zStrdupW(u"")), 0, 0, 0, 0};
    return &none; // a record of history may hold a change without sides
}

const DiffEntry *entry_at(const DiffList *list, uint64_t position) {
    return static_cast<const DiffEntry *const *>(zVectorDataConst(&list->entries))[position];
}

bool selects(PathSpec *spec, const DiffFile *file) {
    return file && spec_matches(spec, to_utf8(file->path.get()));
}

// One half of a rename.
std::unique_ptr<DiffEntry> half_of(const DiffEntry &entry, int32_t kind) {
    auto half = diff_entry_dup(entry);
    half->status = kind;
    half->similarity = 0;
    half->files = 1;
    (kind == Z_KIND_ADDED ? half->old_file : half->new_file).reset();
    return half;
}

// Hands over what a spec makes of one entry, as its kind, until `take` says true.
template <class F> bool each_passing(const DiffEntry &entry, PathSpec *spec, F take) {
    if (entry.status != Z_KIND_RENAMED || !spec_leaves_out(spec, Z_KIND_RENAMED))
        return diff_entry_passes(entry, spec) && take(entry.status);
    return (!spec_leaves_out(spec, Z_KIND_ADDED) && selects(spec, entry.new_file.get()) &&
            take(Z_KIND_ADDED)) ||
           (!spec_leaves_out(spec, Z_KIND_DELETED) && selects(spec, entry.old_file.get()) &&
            take(Z_KIND_DELETED));
}

} // namespace

namespace zev {

DiffListPtr diff_list_new(uint64_t capacity) {
    auto list = std::make_unique<DiffList>();
    if (!zVectorInitPtr(&list->entries, capacity, nullptr, release_entry)) throw std::bad_alloc();
    return DiffListPtr(list.release());
}

std::unique_ptr<DiffEntry> diff_entry_dup(const DiffEntry &entry) {
    auto copy = std::make_unique<DiffEntry>();
    copy->status = entry.status;
    copy->flags = entry.flags;
    copy->similarity = entry.similarity;
    copy->files = entry.files;
    copy->old_file = dup_file(entry.old_file.get());
    copy->new_file = dup_file(entry.new_file.get());
    return copy;
}

DiffListPtr diff_list_dup(const DiffList *list) {
    DiffListPtr copy = diff_list_new(zVectorSize(&list->entries));
    for (uint64_t i = 0; i < zVectorSize(&list->entries); ++i)
        diff_list_append(copy.get(), diff_entry_dup(*entry_at(list, i)));
    return copy;
}

void diff_list_append(DiffList *list, std::unique_ptr<DiffEntry> entry) {
    if (!zVectorPush(&list->entries, entry.get())) throw std::bad_alloc();
    entry.release();
    list->by_path.reset();
}

// A deleted file has no new side: its old path counts.
bool diff_entry_passes(const DiffEntry &entry, PathSpec *spec) {
    if (!spec) return true;
    return !spec_leaves_out(spec, entry.status) && selects(spec, file_of(&entry, false));
}

DiffListPtr diff_list_filtered(const DiffList *list, PathSpec *spec) {
    DiffListPtr copy = diff_list_new(0);
    for (uint64_t i = 0; i < zVectorSize(&list->entries); ++i) {
        const DiffEntry &entry = *entry_at(list, i);
        each_passing(entry, spec, [&](int32_t kind) {
            diff_list_append(copy.get(),
                             kind == entry.status ? diff_entry_dup(entry) : half_of(entry, kind));
            return false;
        });
    }
    if (zVectorIsEmpty(&copy->entries) && spec_options(spec) & Z_SPEC_MUST_MATCH) return nullptr;
    return copy;
}

bool diff_list_any(const DiffList *list, PathSpec *spec) {
    for (uint64_t i = 0; i < zVectorSize(&list->entries); ++i)
        if (each_passing(*entry_at(list, i), spec, [](int32_t) { return true; })) return true;
    return false;
}

} // namespace zev

uint64_t zDiffListLength(const DiffList *list) {
    if (!list) return fail_args(), 0;
    return zVectorSize(&list->entries);
}

DiffEntry *zDiffListEntry(const DiffList *list, uint64_t position) {
    if (!list) return fail_args();
    DiffEntry *entry = nullptr;
    return zVectorAt(&list->entries, position, &entry) ? entry : nullptr;
}

void zDiffListFree(DiffList *list) { free_list(list); }

DiffEntry *zDiffListLookup(DiffList *list, const zwchar *path) {
    if (!list || !path) return fail_args();
    return look_up<DiffEntry>(*list, path, zDiffEntryNewPath);
}

int32_t zDiffEntryStatus(const DiffEntry *entry) {
    if (!entry) return fail_args(), -1;
    return entry->status;
}

const zwchar *zDiffEntryNewPath(const DiffEntry *entry) {
    if (!entry) return fail_args();
    return file_of(entry, false)->path.get();
}

const zwchar *zDiffEntryOldPath(const DiffEntry *entry) {
    if (!entry) return fail_args();
    return file_of(entry, true)->path.get();
}

const Oid *zDiffEntryNewId(const DiffEntry *entry) {
    if (!entry) return fail_args();
    return &file_of(entry, false)->id;
}

const Oid *zDiffEntryOldId(const DiffEntry *entry) {
    if (!entry) return fail_args();
    return &file_of(entry, true)->id;
}

uint64_t zDiffEntryNewSize(const DiffEntry *entry) {
    if (!entry) return fail_args(), 0;
    return file_of(entry, false)->size;
}

uint64_t zDiffEntryOldSize(const DiffEntry *entry) {
    if (!entry) return fail_args(), 0;
    return file_of(entry, true)->size;
}

uint16_t zDiffEntryNewMode(const DiffEntry *entry) {
    if (!entry) return fail_args(), uint16_t{0};
    return file_of(entry, false)->mode;
}

uint16_t zDiffEntryOldMode(const DiffEntry *entry) {
    if (!entry) return fail_args(), uint16_t{0};
    return file_of(entry, true)->mode;
}
