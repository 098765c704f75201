// The index, the ready-made records of commits, and what killed processes left.
#include "verify.hpp"

#include <cerrno>

namespace host {

namespace fs = std::filesystem;

namespace {

// ---- Index

struct IndexWalk {
    Report &report;
    OwnedOdb odb;
    bool stopped = false;
};

int32_t visit_entry(const IndexEntry *entry, void *context) {
    auto *walk = static_cast<IndexWalk *>(context);
    try {
        constexpr uint32_t kForeignCommit = 0160000;
        if (zIndexEntryMode(entry) == kForeignCommit) return 0;
        if (!zOdbExists(walk->odb.get(), zIndexEntryID(entry)))
            walk->report.problem({.path = narrow(zIndexEntryPath(entry))},
                                 "staged, and its object " + hex(zIndexEntryID(entry)) +
                                     " is missing");
        return walk->stopped = zNotifyIsUsrbrk(walk->report.host.notify), walk->stopped;
    } catch (...) {
        return -1;
    }
}

bool holds_files(const WorkingCopy &copy) {
    if (!copy.born()) return false;
    const OwnedCommit head(zCommitHead(copy.repository()));
    const OwnedTree tree(head ? zCommitTree(head.get()) : nullptr);
    return tree && zTreeEntryCount(tree.get());
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
    const OwnedDiff stored(zRevdbChanges(db, id));
    const OwnedDiff real(zCommitChanges(commit, nullptr, nullptr));
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
    const auto plain = [](std::string text) {
        for (char &c : text)
            if (static_cast<unsigned char>(c) < ' ') c = ' ';
        return text;
    };
    return plain(narrow(stored)) == plain(narrow(real));
}

void check_record(Report &report, const WorkingCopy &copy, Revdb *db, const Oid *id) {
    ++report.records;
    const Place place{.path = "revisions", .commit = *id};
    const Owned<Revision, zRevisionFree> revision(zRevdbLookup(db, id));
    if (!revision || !zOidIsEqual(zRevisionId(revision.get()), id))
        return report.problem(place, "the record of the commit can't be read");
    if (report.quick || report.lost_objects) return;
    const OwnedCommit commit(zCommitByid(copy.repository(), id));
    if (!commit) return; // a client may have records of more than it holds
    Time time{};
    const bool same = zCommitTime(&time, commit.get()) &&
                      time.seconds == zRevisionTime(revision.get())->seconds &&
                      same_text(zRevisionAuthor(revision.get()), zCommitAuthor(commit.get())) &&
                      same_text(zRevisionMessage(revision.get()), zCommitMessage(commit.get())) &&
                      are_changes_right(db, id, commit.get());
    if (!same) report.problem(place, "the record of the commit says something else than it does");
}

// ---- Locks

bool is_held(const fs::path &path) {
    const Owned<Share, zShareClose> share(
        zShareOpen(path.u16string().c_str(), u"rb", Z_SHARE_NONE));
    return !share && errno != ENOENT;
}

// Without a copy of the index that its holder left, nothing tells a dead owner from a live one.
void check_lock(Report &report, const fs::path &path, const std::string &name, bool heals) {
    const bool ours = name.ends_with(".zlck");
    if ((!ours && !name.ends_with(".lock")) || (ours && is_held(path))) return;
    const bool passing = name.starts_with("refs/zev/checkout-"); // the next one takes it along
    if (ours || heals || passing)
        report.note(name + ": left by a process that died; the next command that changes "
                           "something puts it right");
    else
        report.problem({.path = name}, "a lock; unless git is at work, it was left behind");
}

} // namespace

void check_index(Report &report, const WorkingCopy &copy) {
    const fs::path file = own_directory(copy) / "index";
    std::error_code ignored;
    if (!fs::exists(file, ignored)) {
        if (report.lost_objects || holds_files(copy))
            report.problem({.path = "index"}, "is missing");
        return;
    }
    const OwnedIndex index(has_own_sum(file) ? zIndexHead(copy.repository(), false) : nullptr);
    if (!index) return report.problem({.path = "index"}, "is damaged");
    IndexWalk walk{report, OwnedOdb(check(zOdbOpen(copy.repository())))};
    if (!zIndexWalk(index.get(), visit_entry, &walk) && !walk.stopped) fail_raised("index");
    report.stop_on_break();
}

void check_records(Report &report, const WorkingCopy &copy) {
    const Owned<Revdb, zRevdbFree> db(check(zRevdbOpen(copy.repository())));
    std::error_code ignored;
    const fs::path root = own_directory(copy) / "revisions";
    for (const auto &entry : fs::recursive_directory_iterator(root, ignored)) {
        if (!entry.is_regular_file()) continue;
        report.stop_on_break();
        const std::string digits =
            entry.path().parent_path().filename().string() + entry.path().filename().string();
        Oid id;
        if (digits.size() == 40 && zOidFromStr(&id, wide(digits).c_str()))
            check_record(report, copy, db.get(), &id);
    }
}

void check_locks(Report &report, const WorkingCopy &copy) {
    const fs::path own = own_directory(copy);
    std::error_code ignored;
    const fs::path guard = own / ".index.zlck";
    const bool heals = fs::exists(guard, ignored) && !is_held(guard);
    for (const auto &entry : fs::directory_iterator(own, ignored))
        if (entry.is_regular_file())
            check_lock(report, entry.path(), entry.path().filename().string(), heals);
    const fs::path shared = shared_directory(copy);
    for (const auto &entry : fs::recursive_directory_iterator(shared / "refs", ignored))
        if (entry.is_regular_file())
            check_lock(report, entry.path(), entry.path().lexically_relative(shared).string(),
                       heals);
}

} // namespace host
