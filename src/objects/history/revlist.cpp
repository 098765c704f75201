// Walking history along first parents, up to the first commit that neither is here nor can be asked
// for. What is asked of a commit's own words (time, author, message) is asked first: only a commit
// that passes there needs its record.
#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "objects/history/revision.hpp"
#include "objects/store/branch.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/object.hpp"
#include "zev/notify.h"
#include "zev/oid.h"
#include "zev/time.h"

#include <utility>

using namespace zev;

namespace {

enum class Walk { on, enough, failed };

constexpr uint64_t kBatch = 1000; // commits, or records, of one question

class History {
  public:
    History(Repository *repository, RevSpec *spec, const HistorySource &source)
        : repository_(repository), spec_(spec), source_(source) {}

    bool prepare();
    // Hands the commits that pass to `take`, newest first, until it has enough.
    template <class Take> bool walk(Take take);
    // The revision of a commit, from its record or with a new one; null is a failure.
    RevisionPtr revision(Commit &commit);
    // Asks for the changes only if the spec has paths.
    bool passes_paths(Revision &revision);
    bool has_paths() const { return zPathSpecCount(spec_->paths.get()) > 0; }
    // After an element was taken: only then the limit counts.
    Walk taken(uint64_t count) const {
        return spec_->limit > 0 && count >= static_cast<uint64_t>(spec_->limit) ? Walk::enough
                                                                                : Walk::on;
    }
    // An empty result may count as a failure.
    bool accept(bool empty) const {
        if (!empty || !(spec_->options & Z_REV_MUST_MATCH)) return true;
        return raise_not_found();
    }

  private:
    bool follow(BranchPtr branch);
    int find(git::Commit &commit, const git_oid *id) const; // libgit2's code
    int load(git::Commit &commit, const git_oid *id) const;
    RevisionPtr fetched_revision(const Oid *id);
    bool passes(const git_commit *commit);
    bool in_time(int64_t seconds) const;

    Repository *repository_;
    RevSpec *spec_;  // lent
    RevSpecPtr own_; // in place of none
    HistorySource source_;
    RevdbPtr db_;
    std::optional<Oid> start_; // none: there is no commit yet
};

// ---- Where to start

bool History::prepare() {
    if (!spec_) own_.reset(spec_ = zRevSpecNew());
    db_.reset(zRevdbOpen(repository_));
    if (!spec_ || !db_) return false;
    if (spec_->options & Z_REV_LOCAL) source_.remote = nullptr;
    const RevBase &base = spec_->base;
    if (base.kind == Z_REV_BY_ID) {
        if (zOidIsZero(zRevBaseId(&base))) return fail_args();
        start_ = base.id;
        return true;
    }
    BranchPtr branch(base.kind == Z_REV_BY_HEAD ? zBranchHead(repository_)
                                                : zBranchLookup(repository_, base.reference.get()));
    return branch && follow(std::move(branch));
}

// From the branch, or from the one that it follows, to its commit. What a branch that tracks a
// remote's names may lie with the remote only, and be another there by now.
bool History::follow(BranchPtr branch) {
    if (!(spec_->options & Z_REV_STAY))
        if (BranchPtr upstream{zBranchUpstream(branch.get())}) branch = std::move(upstream);
    if (!zBranchIsRemote(branch.get()))
        source_.remote = nullptr;
    else if (!source_.remote && !(spec_->options & Z_REV_LOCAL))
        return fail_os(ENOTSUP);
    if (source_.remote && !source_.refs(source_.remote, spec_->notify)) return false;
    if (const Oid *id = zBranchResolve(branch.get()))
        start_ = *id;
    else if (!zBranchUnborn(branch.get()))
        return false;
    return true;
}

// ---- From commit to commit

// The first one may be named by a tag.
int History::find(git::Commit &commit, const git_oid *id) const {
    git::Object found, peeled;
    int code = git_object_lookup(out(found), repository_->handle.get(), id, GIT_OBJECT_ANY);
    if (!code) code = git_object_peel(out(peeled), found.get(), GIT_OBJECT_COMMIT);
    if (!code) commit.reset(git::as<git_commit>(peeled.release()));
    return code;
}

// GIT_EUSER when it was asked for in vain, which is raised.
int History::load(git::Commit &commit, const git_oid *id) const {
    const int code = find(commit, id);
    if (code != GIT_ENOTFOUND || !source_.remote) return code;
    if (!source_.commits(source_.remote, git::oid(id), kBatch, spec_->notify)) return GIT_EUSER;
    return find(commit, id);
}

template <class Take> bool History::walk(Take take) {
    if (!start_) return true;
    git_oid id = *git::oid(&*start_);
    bool is_first = true;
    for (Commit commit{nullptr, repository_};; is_first = false) {
        if (zNotifyIsUsrbrk(spec_->notify)) return raise_canceled();
        const int code = load(commit.handle, &id);
        const bool is_end = code == GIT_ENOTFOUND && !is_first && !source_.remote;
        if (is_end) return git_error_clear(), true;
        if (code < 0) return code == GIT_EUSER ? false : fail_git(code);
        const git_oid *parent = git_commit_parent_id(commit.handle.get(), 0);
        if (parent && is_cut(repository_, git_commit_id(commit.handle.get()))) parent = nullptr;
        if (parent) id = *parent;
        const Walk next = passes(commit.handle.get()) ? take(commit) : Walk::on;
        if (next == Walk::failed) return false;
        if (next == Walk::enough || !parent) return true;
    }
}

bool History::in_time(int64_t seconds) const {
    const Time time{seconds, 0};
    if (!zTimeIsZero(&spec_->since) && zTimeDiff(&time, &spec_->since) < 0) return false;
    return zTimeIsZero(&spec_->until) || zTimeDiff(&time, &spec_->until) <= 0;
}

bool included(PathSpec *list, const char *text) {
    return !zPathSpecCount(list) || spec_matches(list, text);
}
bool excluded(PathSpec *list, const char *text) {
    return zPathSpecCount(list) && spec_matches(list, text);
}

// Git ends a message with a line feed, which nobody writes into a pattern.
std::string message_of(const git_commit *commit) {
    std::string message = git_commit_message(commit);
    message.resize(message.find_last_not_of('\n') + 1);
    return message;
}

bool History::passes(const git_commit *commit) {
    if (!in_time(git_commit_time(commit))) return false;
    const char *author = git_commit_author(commit)->name;
    const std::string message = message_of(commit);
    return included(spec_->include_authors.get(), author) &&
           !excluded(spec_->exclude_authors.get(), author) &&
           included(spec_->include_messages.get(), message.c_str()) &&
           !excluded(spec_->exclude_messages.get(), message.c_str());
}

// ---- Records

RevisionPtr History::revision(Commit &commit) {
    if (source_.remote) return fetched_revision(git::oid(git_commit_id(commit.handle.get())));
    RevisionPtr kept = kept_revision(db_.get(), commit);
    // The trees of older commits are with the server. Whoever asks for the changes is told so.
    if (!kept && source_.is_partial && zErrorClass() == error_class::kNotFound)
        kept = words_of(&commit);
    return kept;
}

// A server's records tell changes whose trees are not here.
RevisionPtr History::fetched_revision(const Oid *id) {
    RevisionPtr found;
    const Lookup fate = find_record(db_.get(), id, found);
    if (fate == Lookup::whole) return found;
    if (fate == Lookup::damaged) zRevdbRemove(db_.get(), id); // it would pass for one that is here
    if (!source_.records(source_.remote, id, kBatch, spec_->notify)) return nullptr;
    find_record(db_.get(), id, found);
    return found;
}

bool History::passes_paths(Revision &revision) {
    if (!has_paths()) return true;
    const DiffList *changes = zRevisionChanges(&revision);
    return changes && diff_list_any(changes, spec_->paths.get());
}

} // namespace

RevisionPtr zev::kept_revision(Revdb *db, Commit &commit) {
    RevisionPtr found;
    const Oid *id = git::oid(git_commit_id(commit.handle.get()));
    const Lookup fate = find_record(db, id, found);
    if (fate == Lookup::whole) return found;
    found = revision_of(&commit);
    if (fate == Lookup::damaged) zRevdbRemove(db, id);
    if (found) zRevdbInsert(db, id, found.get());
    return found;
}

bool zev::revision_ids(Repository *repository, RevSpec *spec, std::vector<Oid> &ids) {
    History history(repository, spec, {});
    if (!history.prepare()) return false;
    const bool done = history.walk([&](Commit &commit) {
        if (history.has_paths()) {
            const RevisionPtr revision = history.revision(commit);
            if (!revision) return Walk::failed;
            if (!history.passes_paths(*revision)) return Walk::on;
        }
        ids.push_back(*git::oid(git_commit_id(commit.handle.get())));
        return history.taken(ids.size());
    });
    return done && history.accept(ids.empty());
}

Owned<RevList, zRevListFree> zev::rev_list(Repository *repository, RevSpec *spec,
                                           const HistorySource &source) {
    Owned<RevList, zRevListFree> list(new RevList());
    History history(repository, spec, source);
    if (!history.prepare()) return nullptr;
    const bool done = history.walk([&](Commit &commit) {
        RevisionPtr revision = history.revision(commit);
        if (!revision) return Walk::failed;
        if (!history.passes_paths(*revision)) return Walk::on;
        list->entries.push_back(std::move(revision));
        return history.taken(list->entries.size());
    });
    return done && history.accept(list->entries.empty()) ? std::move(list) : nullptr;
}

uint64_t zRevListLength(const RevList *list) {
    if (!list) return fail_args(), 0;
    return list->entries.size();
}

Revision *zRevListEntry(const RevList *list, uint64_t index) {
    if (!list || index >= list->entries.size()) return fail_args();
    return list->entries[index].get();
}

void zRevListFree(RevList *list) { delete list; }
