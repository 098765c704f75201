// The index, and the ready-made records of commits beside the commits.
#include "common/utf.hpp"
#include "objects/history/revision.hpp"
#include "objects/store/object.hpp"
#include "objects/work/index.hpp"
#include "verify/files.hpp"
#include "verify/parts.hpp"
#include "zev/commit.h"
#include "zev/index.h"
#include "zev/oid.h"
#include "zev/str.h"
#include "zev/tree.h"

namespace zev::verify {

namespace {

// ---- Index

bool holds_files(Repository *repository) {
    const Owned<Tree, zTreeFree> tree(zTreeHead(repository));
    return tree && zTreeEntryCount(tree.get());
}

// True to go on.
bool check_entry(Report &report, git_odb *odb, const git_index_entry &entry) {
    const bool is_there = entry.mode == GIT_FILEMODE_COMMIT || git_odb_exists(odb, &entry.id) == 1;
    if (!is_there)
        report.damage({.path = entry.path},
                      "staged, and its object " + hex(*git::oid(&entry.id)) + " is missing");
    return !report.broken();
}

void check_entries(Report &report, git_index *index) {
    git::Odb odb;
    if (const int code = git_repository_odb(out(odb), report.repository->handle.get()); code < 0) {
        fail_git(code);
        report.stop();
        return;
    }
    for (size_t i = 0, count = git_index_entrycount(index); i < count; ++i)
        if (!check_entry(report, odb.get(), *git_index_get_byindex(index, i))) return;
}

// ---- Records

bool is_same_file(const DiffEntry *a, const DiffEntry *b) {
    return zDiffEntryStatus(a) == zDiffEntryStatus(b) &&
           zStrsameW(zDiffEntryNewPath(a), zDiffEntryNewPath(b)) &&
           zStrsameW(zDiffEntryOldPath(a), zDiffEntryOldPath(b)) &&
           zOidIsEqual(zDiffEntryNewId(a), zDiffEntryNewId(b)) &&
           zOidIsEqual(zDiffEntryOldId(a), zDiffEntryOldId(b)) &&
           zDiffEntryNewMode(a) == zDiffEntryNewMode(b) &&
           zDiffEntryOldMode(a) == zDiffEntryOldMode(b);
}

bool are_changes_right(Revdb *db, const Oid *id, Commit *commit) {
    const DiffListPtr stored(zRevdbChanges(db, id));
    const DiffListPtr real(zCommitChanges(commit, nullptr, nullptr));
    if (!real) return true; // the tree is missing, which was told
    const uint64_t count = zDiffListLength(real.get());
    if (!stored || zDiffListLength(stored.get()) != count) return false;
    for (uint64_t i = 0; i < count; ++i)
        if (!is_same_file(zDiffListEntry(stored.get(), i), zDiffListEntry(real.get(), i)))
            return false;
    return true;
}

// Control characters became blanks.
bool same_text(const zwchar *stored, const zwchar *real) {
    const auto plain = [](const zwchar *text) {
        std::u16string copy(text ? text : u"");
        for (zwchar &c : copy)
            if (c < u' ') c = u' ';
        return copy;
    };
    return plain(stored) == plain(real);
}

bool says_the_same(Revdb *db, const Revision *revision, Commit *commit) {
    Time time{};
    return zCommitTime(&time, commit) && time.seconds == zRevisionTime(revision)->seconds &&
           same_text(zRevisionAuthor(revision), zCommitAuthor(commit)) &&
           same_text(zRevisionMessage(revision), zCommitMessage(commit)) &&
           are_changes_right(db, zRevisionId(revision), commit);
}

void check_record(Report &report, Revdb *db, const Oid *id) {
    ++report.counts.records;
    const Place place{.path = "revisions", .commit = *id};
    const RevisionPtr revision(zRevdbLookup(db, id));
    if (!revision || !zOidIsEqual(zRevisionId(revision.get()), id))
        return report.damage(place, "the record of the commit can't be read");
    if (report.quick() || report.lost_objects) return;
    const CommitPtr commit(zCommitByid(report.repository, id));
    // A client may have records of more than it holds.
    if (commit && !says_the_same(db, revision.get(), commit.get()))
        report.damage(place, "the record of the commit says something else than it does");
}

} // namespace

void check_index(Report &report) {
    git_repository *git = report.repository->handle.get();
    const bool has_none = git_repository_is_bare(git) || !report.is_wanted(Z_VERIFY_INDEX);
    if (has_none || report.broken()) return;
    const std::u16string file = own_directory(git) + u"index";
    if (!exists(file)) {
        if (report.lost_objects || holds_files(report.repository))
            report.damage({.path = "index"}, "is missing");
        return;
    }
    const IndexPtr index(has_own_sum(file) ? zIndexHead(report.repository, false) : nullptr);
    if (!index) return report.damage({.path = "index"}, "is damaged");
    check_entries(report, index->handle.get());
}

void check_records(Report &report) {
    if (!report.is_wanted(Z_VERIFY_RECORDS) || report.broken()) return;
    const RevdbPtr db(zRevdbOpen(report.repository));
    const std::u16string root = own_directory(report.repository->handle.get()) + u"revisions/";
    if (!db) return void(report.stop());
    visit_files(root, true, [&](const std::u16string &path, const std::u16string &) {
        Oid id;
        const std::string digits = path.size() < 41 ? "" : to_utf8(path.substr(path.size() - 41));
        if (digits.find('/') != 2 || !parse_id(digits.substr(0, 2) + digits.substr(3), &id)) return;
        if (!report.broken()) check_record(report, db.get(), &id);
    });
}

} // namespace zev::verify
