// A lock file ".<name>.zlck" beside a file is the lock and the file's copy in one, see
// zev/flock.h. References lie where all worktrees of a repository share them.
//
// What a transaction is in, and what moves it on; its files change between the last lock and Free:
//   collecting   LockIndex and LockRef take one more lock each, in the order of zev/transaction.h
//     -Rollback-> undone     the files are as they were locked; the locks stand
//     roll_back_index        the index is, and the state stays
//     expire_locks           no recovery goes back any more, but the two above do; the state stays
//     -Free->                the locks go, and what was changed stays
#include "objects/work/transaction.hpp"

#include "common/limits.hpp"
#include "common/utf.hpp"
#include "objects/store/sweep.hpp"
#include "objects/work/recovery.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"
#include "system/path.hpp"
#include "zev/dir.h"
#include "zev/path.h"
#include "zev/repository.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

using namespace zev;

struct Transaction {
    Repository *owner;
    std::vector<Lock> locks{}; // in the order of taking
    size_t undone = 0;         // of them, from the first on; taking one more starts anew

    void check_state() const;
};

void Transaction::check_state() const {
    assert(owner);
    assert(std::ranges::none_of(locks, [](const Lock &lock) { return !lock; }));
    assert(undone <= locks.size());
}

namespace {

using std::u16string;
using std::u16string_view;

u16string shared_directory(const Repository *repository) {
    return to_wide(git_repository_commondir(repository->handle.get()));
}

bool take(Transaction *transaction, const u16string &path) {
    Lock lock(zFlockOpen(path.c_str(), true));
    if (!lock) return false;
    transaction->locks.push_back(std::move(lock));
    transaction->undone = 0;
    transaction->check_state();
    return true;
}

bool is_reference(const std::string &name) {
    int valid = 0;
    return !git_reference_name_is_valid(&valid, name.c_str()) && valid;
}

void collect(const u16string &directory, bool recursive, std::vector<u16string> &targets) {
    std::vector<os::Name> names;
    if (!os::read_dir(directory.c_str(), &names)) return;
    for (const os::Name &name : names) {
        if (name.text == u"." || name.text == u"..") continue;
        const u16string_view locked = locked_name(name.text);
        if (name.directory && recursive) collect(directory + name.text + u"/", true, targets);
        if (!name.directory && !locked.empty()) targets.push_back(directory + u16string(locked));
    }
}

bool same_bytes(const u16string &a, const u16string &b) {
    const Owned<FILE, fclose> first(os::open(a.c_str(), u"rb")), second(os::open(b.c_str(), u"rb"));
    if (!first || !second) return false;
    std::vector<char> left(limits::step), right(limits::step);
    for (;;) {
        const size_t count = fread(left.data(), 1, left.size(), first.get());
        if (fread(right.data(), 1, right.size(), second.get()) != count ||
            memcmp(left.data(), right.data(), count) != 0)
            return false;
        if (count < left.size()) return !ferror(first.get()) && !ferror(second.get());
    }
}

} // namespace

namespace zev {

bool roll_back_index(Transaction *transaction) {
    transaction->check_state();
    return transaction->locks.empty() || zFlockUndo(transaction->locks.front().get());
}

// The index comes first: a copy of a branch alone is not followed.
void expire_locks(Transaction *transaction) {
    transaction->check_state();
    for (const Lock &lock : transaction->locks)
        if (!flock_expire(lock.get())) log_raised(kWarning);
}

bool is_put_back(const u16string &target) {
    const u16string copy = lock_path(target);
    struct stat saved, present;
    if (!os::lstat(copy.c_str(), &saved)) return false;
    if (is_incomplete(saved)) return true;
    if (!saved.st_size) return !os::lstat(target.c_str(), &present) && errno == ENOENT;
    return same_bytes(copy, target);
}

std::vector<u16string> left_locked(Repository *repository) {
    std::vector<u16string> found, targets;
    const u16string root = to_wide(git_repository_path(repository->handle.get()));
    collect(root, false, found);
    for (u16string &path : found)
        if (path == root + u"index" || path == root + u"HEAD") targets.push_back(std::move(path));
    collect(shared_directory(repository) + u"refs/", true, targets);
    return targets;
}

// The name as a commit resolves it: a short one too, and HEAD, whose branch may be still to come.
void drop_left_copy(Repository *repository, const zwchar *reference) {
    git_repository *git = repository->handle.get();
    git::Reference named;
    std::string name = to_utf8(reference);
    if (git_reference_dwim(out(named), git, name.c_str()) < 0)
        git_reference_lookup(out(named), git, name.c_str());
    const char *next = named ? git_reference_symbolic_target(named.get()) : nullptr;
    if (named) name = next ? next : git_reference_name(named.get());
    const u16string path = shared_directory(repository) + to_wide(name);
    struct stat status;
    if (os::lstat(lock_path(path).c_str(), &status)) zFlockPurge(path.c_str());
    git_error_clear();
}

} // namespace zev

Transaction *zTransactionNew(Repository *repository) try {
    if (!repository) return fail_args();
    return new Transaction{repository};
} catch (...) {
    return fail_thrown();
}

void zTransactionFree(Transaction *transaction) { delete transaction; }

bool zTransactionLockIndex(Transaction *transaction) try {
    if (!transaction) return fail_args();
    const zwchar *root = zRepositoryPath(transaction->owner);
    return root && sweep_stale(transaction->owner) && take(transaction, root + u16string(u"index"));
} catch (...) {
    return fail_thrown();
}

bool zTransactionLockRef(Transaction *transaction, const zwchar *reference) try {
    if (!transaction || !reference || !is_reference(to_utf8(reference))) return fail_args();
    zwchar path[Z_PATH_MAX];
    if (!path_join(path, shared_directory(transaction->owner).c_str(), reference)) return false;
    const u16string_view file(path);
    os::make_dirs(u16string(file.substr(0, file.rfind(u'/'))).c_str()); // else the lock fails
    return take(transaction, path);
} catch (...) {
    return fail_thrown();
}

bool zTransactionRollback(Transaction *transaction) {
    if (!transaction) return fail_args();
    transaction->check_state();
    transaction->undone = 0;
    for (const Lock &lock : transaction->locks) {
        if (!zFlockUndo(lock.get())) return false;
        ++transaction->undone;
    }
    assert(transaction->undone == transaction->locks.size());
    return true;
}

bool zTransactionRecover(Repository *repository) try {
    if (!repository) return fail_args();
    const std::vector<u16string> targets = left_locked(repository);
    if (const u16string branch = gone_on_from(repository, targets); !branch.empty()) {
        const KeptFailure kept;
        raise_other(u"has moved on since a process died; nothing is put back", branch);
        return log_raised(kWarning), true;
    }
    for (const u16string &target : targets) zFlockRecover(target.c_str());
    return true;
} catch (...) {
    return fail_thrown();
}
