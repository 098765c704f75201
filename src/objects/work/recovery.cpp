// A process that was killed leaves ".<name>.zlck" beside the index, HEAD or a reference: a copy of
// that file from before it began; complete if the owner may not execute it. Going back to it is
// right as long as nobody has gone on from what the process left. Git doesn't know these copies,
// and commits on top. So they are only followed
//   - when the index has one: a copy of a branch alone is left by a process that was done;
//   - for a branch that stands where it was, or one automatic merge, by "remote", further;
//   - for a tracking reference wherever it stands, and with a copy of one for a branch that is as
//     far ahead as an operation over a server gets: what its commit has and the server has not
//     would be taken back by the next update, be it the user's or of git;
//   - without one of the branch, when HEAD and its branch are older than the index's copy: our own
//     commits make that incomplete before the branch moves, and a checkout both when it has.
// Otherwise they are dropped, and index and branch stay as they are. A host that asks for recovery
// itself (zTransactionRecover, a cleanup) has decided that they are to be followed, unless a branch
// has moved on.
#include "objects/work/recovery.hpp"

#include "common/utf.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/sweep.hpp"
#include "objects/work/transaction.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"
#include "system/share.hpp"
#include "zev/commit.h"
#include "zev/oid.h"
#include "zev/reference.h"
#include "zev/repository.h"
#include "zev/str.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

using namespace zev;

namespace {

using std::u16string;

constexpr zwchar kAutomatic[] = u"remote"; // author of a merge that nobody wrote
constexpr int kOperation = 3; // commits that one over a server makes at most, on a branch

// A whole copy that was left behind.
struct Left {
    u16string file, target;
    timespec time;
};

std::optional<Left> left_of(const u16string &target) {
    const size_t name = target.rfind(u'/') + 1;
    const u16string file = target.substr(0, name) + lock_name(target.substr(name));
    struct stat status;
    if (!os::lstat(file.c_str(), &status) || !S_ISREG(status.st_mode) || is_incomplete(status))
        return {};
    return Left{file, target, status.st_mtim};
}

// The id in a reference's file, in digits; empty without one.
std::string digits_in(const u16string &path) {
    char text[40];
    const Owned<FILE, fclose> file(os::open(path.c_str(), u"rb"));
    return {text, file ? fread(text, 1, sizeof text, file.get()) : 0};
}

bool is_tracking(const std::string &name) { return name.starts_with("refs/remotes/"); }

// Whether the process spoke to a server.
bool has_tracking(Repository *repository, const std::vector<u16string> &targets) {
    return std::ranges::any_of(targets, [&](const u16string &target) {
        return is_tracking(reference_of(repository, target)) && left_of(target);
    });
}

// Along the first parents, up to the first that isn't here.
bool is_behind(Repository *repository, const std::string &before, Oid id) {
    for (int steps = 0; before != git_oid_tostr_s(git::oid(&id)); ++steps) {
        const Owned<Commit, zCommitFree> commit(zCommitByid(repository, &id));
        const Oid *parent = commit && steps < kOperation ? zCommitParentId(commit.get()) : nullptr;
        if (!parent) return commit && steps < kOperation && before.empty();
        id = *parent;
    }
    return true;
}

// Where the branch stood, and where it stands, be it packed since. What names no commit is nobody's
// work.
bool can_go_back(Repository *repository, const Left &left, bool over_server) {
    const Finally clear([] { git_error_clear(); });
    const std::string name = reference_of(repository, left.target);
    if (is_tracking(name)) return true;
    const std::string before = digits_in(left.file);
    Oid id;
    if (git_reference_name_to_id(git::oid(&id), repository->handle.get(), name.c_str()))
        return true;
    if (before == git_oid_tostr_s(git::oid(&id))) return true;
    const Owned<Commit, zCommitFree> tip(zCommitByid(repository, &id));
    if (!tip) return true;
    if (over_server) return is_behind(repository, before, id);
    if (!zStrsameW(zCommitAuthor(tip.get()), kAutomatic)) return false;
    const Oid *parent = zCommitParentId(tip.get());
    return before.empty() ? !parent : parent && before == git_oid_tostr_s(git::oid(parent));
}

class Recovery {
  public:
    explicit Recovery(Repository *repository) : repository_(repository) {}

    bool run(int32_t &outcome) {
        find();
        if ((!index_ && references_.empty()) || is_at_work()) return true;
        // A look under the index's lock takes its copy away; what the server may not have goes back
        // all the same.
        if ((index_ || (over_server_ && !references_.empty())) && stands()) {
            outcome = Z_RECOVERY_PUT_BACK;
            return put_back_left(repository_);
        }
        if (index_) {
            outcome = Z_RECOVERY_GONE_ON;
            zFlockPurge(index_->target.c_str());
        }
        for (const Left &left : references_) zFlockPurge(left.target.c_str());
        return true;
    }

  private:
    void find() {
        const u16string root = to_wide(git_repository_path(repository_->handle.get()));
        const std::vector<u16string> targets = left_locked(repository_);
        over_server_ = has_tracking(repository_, targets);
        for (const u16string &target : targets) {
            auto left = left_of(target);
            if (target == root + u"index")
                index_ = std::move(left);
            else if (left && target != root + u"HEAD")
                references_.push_back(std::move(*left));
        }
        head_ = root + u"HEAD";
    }

    bool is_at_work() const {
        if (index_ && is_held(index_->file)) return true;
        for (const Left &left : references_)
            if (is_held(left.file)) return true;
        return false;
    }

    bool stands() const {
        for (const Left &left : references_)
            if (!can_go_back(repository_, left, over_server_)) return false;
        return !references_.empty() || is_head_older();
    }

    // Nothing that tells where HEAD is has changed since. A branch has a file of its own or is
    // packed, and lies where all worktrees share it.
    bool is_head_older() const {
        std::vector<u16string> files{head_};
        const Owned<Reference, zReferenceFree> head(zReferenceHead(repository_));
        const u16string shared = to_wide(git_repository_commondir(repository_->handle.get()));
        struct stat status;
        const zwchar *branch = head ? zReferencePath(head.get()) : nullptr;
        if (branch) files.push_back(branch);
        if (branch && !os::stat(branch, &status)) files.push_back(shared + u"packed-refs");
        for (const u16string &file : files)
            if (os::stat(file.c_str(), &status) && !is_before(status.st_mtim, index_->time))
                return false;
        return true;
    }

    Repository *repository_;
    u16string head_;
    std::optional<Left> index_;
    std::vector<Left> references_;
    bool over_server_ = false;
};

} // namespace

namespace zev {

bool is_held(const u16string &lock_file) {
    const ShareGuard share(zShareOpen(lock_file.c_str(), u"rb", Z_SHARE_NONE));
    return !share && errno != ENOENT;
}

// The locks that libgit2 left go first, while our own still tells since when its holder worked.
// What was put back is done with: an old copy must not undo a later commit. One that could not be
// put back is all that there is, and stays; but for those of a state that somebody has gone on
// from.
bool put_back_left(Repository *repository) {
    const std::vector<u16string> targets = left_locked(repository);
    const bool swept = sweep_stale(repository);
    const bool gone_on = !gone_on_from(repository, targets).empty();
    zTransactionRecover(repository);
    for (const u16string &target : targets)
        if (gone_on || is_put_back(repository, target)) zFlockPurge(target.c_str());
    return swept;
}

u16string gone_on_from(Repository *repository, const std::vector<u16string> &targets) {
    const KeptFailure kept;
    const bool over_server = has_tracking(repository, targets);
    for (const u16string &target : targets)
        if (const auto left = left_of(target); left && !reference_of(repository, target).empty())
            if (!can_go_back(repository, *left, over_server)) return target;
    return {};
}

} // namespace zev

bool zRepositoryRecover(int32_t *outcome, Repository *repository) try {
    if (!outcome || !repository) return fail_args();
    int32_t what = Z_RECOVERY_NOTHING;
    const bool done = Recovery(repository).run(what);
    *outcome = what;
    return done;
} catch (...) {
    return fail_thrown();
}
