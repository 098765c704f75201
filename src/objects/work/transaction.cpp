// A lock file ".<name>.zlck" beside a file is the lock and the file's copy in one, see
// zev/flock.h. Branches lie where all worktrees of a repository share them, HEAD is each one's own.
//
// What a transaction is in, and what moves it on; its files change between the last lock and Free:
//   collecting   LockIndex and LockRef take one more lock each, in the order of zev/transaction.h
//     -Rollback-> undone     the files are as they were locked; the locks stand
//     roll_back_all          the same, and it goes on behind a file that can't be put back; but for
//                            index and branch where somebody has committed on top
//     roll_back_index        the index is, and the state stays
//     expire_locks           no recovery goes back any more, but the three above do; the state
//     stays -Free->                the locks go, and what was changed stays
//
// Where a file could not be put back, Free leaves all the copies: they are all that there is, and
// recovery goes back to a state by all of them or not at all.
#include "objects/work/transaction.hpp"

#include "common/limits.hpp"
#include "common/utf.hpp"
#include "objects/store/reference.hpp"
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
    struct Taken {
        Lock lock;
        std::string reference{}; // its full name; empty of the index
        git_oid before{};        // where that stood; zero where it was none, or no plain one
        bool unborn = false;     // it wasn't there
    };

    Repository *owner;
    std::vector<Taken> locks{}; // in the order of taking
    size_t undone = 0;          // of them, from the first on; taking one more starts anew
    bool keeps = false;         // one could not be put back

    bool put_back(const Taken &taken);
    bool has_moved(const Taken &taken, const Oid *own) const;
    void check_state() const;
};

void Transaction::check_state() const {
    assert(owner);
    assert(std::ranges::none_of(locks, [](const Taken &taken) { return !taken.lock; }));
    assert(undone <= locks.size());
}

namespace {

using std::u16string;
using std::u16string_view;

// A reference has a file, or is packed, where its copy gets what its file would hold: git may pack
// it, or make it a file, as it likes.
bool take(Transaction *transaction, const u16string &path, const char *reference = nullptr) {
    Lock lock(flock_open_lazy(path.c_str()));
    if (!lock) return false;
    git::Reference there;
    const int code =
        !reference ? GIT_ENOTFOUND
                   : git_reference_lookup(out(there), transaction->owner->handle.get(), reference);
    git_error_clear();
    const git_oid *id = there ? git_reference_target(there.get()) : nullptr;
    if (!flock_complete(lock.get(), id ? git_oid_tostr_s(id) + std::string("\n") : ""))
        return false;
    const bool unborn = reference && code == GIT_ENOTFOUND;
    transaction->locks.push_back(
        {std::move(lock), reference ? reference : "", id ? *id : git_oid{}, unborn});
    transaction->undone = 0;
    transaction->check_state();
    return true;
}

// One that came since may have been packed, and has no file to take away then.
bool unmake(Repository *repository, const std::string &name) {
    git_oid id;
    git_repository *git = repository->handle.get();
    const Finally clear([] { git_error_clear(); });
    if (git_reference_name_to_id(&id, git, name.c_str()) == GIT_ENOTFOUND) return true;
    const int code = git_reference_remove(git, name.c_str());
    return code < 0 ? fail_git(code) : true;
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

// A copy that is empty tells of a reference that wasn't there.
void recover(Repository *repository, const u16string &target) {
    struct stat saved, present;
    zFlockRecover(target.c_str());
    if (!os::lstat(lock_path(target).c_str(), &saved) || is_incomplete(saved) || saved.st_size)
        return;
    const std::string name = reference_of(repository, target);
    if (!name.empty() && !os::lstat(target.c_str(), &present)) unmake(repository, name);
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

bool Transaction::put_back(const Taken &taken) {
    if (zFlockUndo(taken.lock.get()) && (!taken.unborn || unmake(owner, taken.reference)))
        return true;
    keeps = true;
    return false;
}

bool Transaction::has_moved(const Taken &taken, const Oid *own) const {
    const Finally clear([] { git_error_clear(); });
    git_oid now;
    return taken.reference.starts_with("refs/heads/") &&
           !git_reference_name_to_id(&now, owner->handle.get(), taken.reference.c_str()) &&
           !git_oid_equal(&now, &taken.before) && !(own && git_oid_equal(&now, git::oid(own)));
}

namespace zev {

bool roll_back_index(Transaction *transaction) {
    transaction->check_state();
    return transaction->locks.empty() || transaction->put_back(transaction->locks.front());
}

void roll_back_all(Transaction *transaction, const Oid *own) {
    transaction->check_state();
    const std::vector<Transaction::Taken> &locks = transaction->locks;
    const auto moved = std::ranges::find_if(
        locks, [&](const auto &taken) { return transaction->has_moved(taken, own); });
    const bool has_moved = moved != locks.end();
    if (has_moved) {
        raise_other(u"has moved on meanwhile; it and the index stay", moved->reference);
        log_raised(kWarning);
    }
    for (const Transaction::Taken &taken : locks)
        if ((!has_moved || taken.reference.starts_with("refs/remotes/")) &&
            !transaction->put_back(taken))
            log_raised(kWarning);
}

bool is_as_locked(const Transaction *transaction, const zwchar *reference) {
    const std::string name = to_utf8(reference);
    const auto taken = std::ranges::find(transaction->locks, name, &Transaction::Taken::reference);
    return taken != transaction->locks.end() && !transaction->has_moved(*taken, nullptr);
}

Failure fail_moved() {
    git_error_set_str(GIT_ERROR_REFERENCE, "the branch has moved");
    return fail_git(GIT_EMODIFIED);
}

// The index comes first: a copy of a branch alone is not followed, but over a server.
bool expire_locks(Transaction *transaction) {
    transaction->check_state();
    return std::ranges::all_of(transaction->locks,
                               [](const auto &taken) { return flock_expire(taken.lock.get()); });
}

std::string reference_of(const Repository *repository, const u16string &target) {
    git_repository *git = repository->handle.get();
    const std::string path = to_utf8(target);
    for (const std::string root : {git_repository_commondir(git), git_repository_path(git)})
        if (path.starts_with(root + "refs/")) return path.substr(root.size());
    return {};
}

bool is_put_back(const Repository *repository, const u16string &target) {
    const u16string copy = lock_path(target);
    struct stat saved, present;
    if (!os::lstat(copy.c_str(), &saved)) return false;
    if (is_incomplete(saved)) return true;
    if (saved.st_size) return same_bytes(copy, target);
    if (os::lstat(target.c_str(), &present) || errno != ENOENT) return false;
    const std::string name = reference_of(repository, target);
    git_oid id;
    const Finally clear([] { git_error_clear(); });
    return name.empty() ||
           git_reference_name_to_id(&id, repository->handle.get(), name.c_str()) == GIT_ENOTFOUND;
}

std::vector<u16string> left_locked(Repository *repository) {
    git_repository *git = repository->handle.get();
    std::vector<u16string> found, targets;
    const u16string root = to_wide(git_repository_path(git));
    const u16string shared = to_wide(git_repository_commondir(git));
    collect(root, false, found);
    for (u16string &path : found)
        if (path == root + u"index" || path == root + u"HEAD") targets.push_back(std::move(path));
    collect(shared + u"refs/", true, targets);
    if (root != shared) collect(root + u"refs/", true, targets); // a worktree's own
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
    const u16string path = to_wide(reference_root(git, name) + name);
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

void zTransactionFree(Transaction *transaction) {
    if (transaction && transaction->keeps)
        for (Transaction::Taken &taken : transaction->locks) flock_leave(taken.lock.release());
    delete transaction;
}

bool zTransactionLockIndex(Transaction *transaction) try {
    if (!transaction) return fail_args();
    const zwchar *root = zRepositoryPath(transaction->owner);
    return root && sweep_stale(transaction->owner) && take(transaction, root + u16string(u"index"));
} catch (...) {
    return fail_thrown();
}

bool zTransactionLockRef(Transaction *transaction, const zwchar *reference) try {
    if (!transaction || !reference) return fail_args();
    const std::string name = to_utf8(reference);
    if (!is_reference(name)) return fail_args();
    const u16string root = to_wide(reference_root(transaction->owner->handle.get(), name));
    zwchar path[Z_PATH_MAX];
    if (!path_join(path, root.c_str(), reference)) return false;
    const u16string_view file(path);
    os::make_dirs(u16string(file.substr(0, file.rfind(u'/'))).c_str()); // else the lock fails
    return take(transaction, path, name.c_str());
} catch (...) {
    return fail_thrown();
}

bool zTransactionRollback(Transaction *transaction) {
    if (!transaction) return fail_args();
    transaction->check_state();
    transaction->undone = 0;
    for (const Transaction::Taken &taken : transaction->locks) {
        if (!transaction->put_back(taken)) return false;
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
    for (const u16string &target : targets) recover(repository, target);
    return true;
} catch (...) {
    return fail_thrown();
}
