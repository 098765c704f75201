// Commits are read here one by one, since of a server's history a copy may have any part: one that
// is missing has no parents, but its id is known by its child.
#include "remote/standing.hpp"

#include "objects/store/reference.hpp"
#include "objects/store/strict.hpp"
#include "objects/store/tree_pairs.hpp"
#include "objects/work/file_mode.hpp"
#include "objects/work/treebuilder.hpp"
#include "remote/rtdownload.hpp"
#include "zev/oid.h"
#include "zev/reference.h"
#include "zev/remote.h"

#include <deque>
#include <string>

namespace zev {

namespace {

using Log = Owned<git_reflog, git_reflog_free>;

// ---- References

std::string note_name(const char *kind, const Branch *head) {
    std::string name = std::string("refs/zev/") + kind;
    for (const char c : to_utf8(zBranchName(head)))
        name += c == '/' ? "%2F" : c == '%' ? "%25" : std::string(1, c);
    return name;
}
std::string agreed_name(const Branch *head) { return note_name("agreed/", head); }
std::string server_name(const Branch *head) { return note_name("server/", head); }

std::optional<Oid> target_of(git_repository *git, const std::string &name) {
    const Finally clear([] { git_error_clear(); });
    git_oid id;
    if (git_reference_name_to_id(&id, git, name.c_str()) < 0) return {};
    return *git::oid(&id);
}

// Where a reference was, the newest first, as far as its log goes.
std::vector<Oid> former_targets(git_repository *git, const std::string &name) {
    const Finally clear([] { git_error_clear(); });
    std::vector<Oid> found;
    Log log;
    if (git_reference_has_log(git, name.c_str()) != 1 ||
        git_reflog_read(out(log), git, name.c_str()) < 0)
        return found;
    for (size_t n = 0; n < git_reflog_entrycount(log.get()); ++n)
        found.push_back(*git::oid(git_reflog_entry_id_new(git_reflog_entry_byindex(log.get(), n))));
    return found;
}

// ---- Commits

git::Commit commit_of(git_repository *git, const Oid &id) {
    const Finally clear([] { git_error_clear(); });
    git::Commit commit;
    git_commit_lookup(out(commit), git, git::oid(&id));
    return commit;
}

std::vector<Oid> parents_of(const git_commit *commit) {
    std::vector<Oid> parents;
    for (unsigned n = 0; commit && n < git_commit_parentcount(commit); ++n)
        parents.push_back(*git::oid(git_commit_parent_id(commit, n)));
    return parents;
}

// Visits a commit and what it leads to, each once, the nearer first; false from `visit` goes no
// further behind one.
template <class F> void each_ancestor(git_repository *git, std::vector<Oid> tips, F visit) {
    std::deque<Oid> pending(tips.begin(), tips.end());
    for (Ids seen; !pending.empty(); pending.pop_front()) {
        if (!seen.insert(pending.front()).second || !visit(pending.front())) continue;
        const std::vector<Oid> parents = parents_of(commit_of(git, pending.front()).get());
        pending.insert(pending.end(), parents.begin(), parents.end());
    }
}

Ids ancestors_of(git_repository *git, const std::vector<Oid> &tips) {
    Ids found;
    each_ancestor(git, tips, [&](const Oid &id) { return found.insert(id), true; });
    return found;
}

bool leads_to(git_repository *git, const Oid &from, const Oid &to) {
    bool found = false;
    each_ancestor(git, {from}, [&](const Oid &id) {
        found = found || zOidIsEqual(&id, &to);
        return !found;
    });
    return found;
}

// From a commit to its first parent, and so on, until `visit` gives false. Whether it ended at one
// that has none, or by `visit`: not where one is missing.
template <class F> bool along_line(git_repository *git, const Oid &tip, F visit) {
    for (Oid id = tip; visit(id);) {
        const git::Commit commit = commit_of(git, id);
        if (!commit) return false;
        const std::vector<Oid> parents = parents_of(commit.get());
        if (parents.empty()) return true;
        id = parents.front();
    }
    return true;
}

TreePtr tree_of(Repository *repository, const Oid &id) {
    const CommitPtr commit(zCommitByid(repository, &id));
    return TreePtr(commit ? zCommitTree(commit.get()) : nullptr);
}

// ---- The look

class Look {
  public:
    // With the server's branch where it is tracked, or at a tip.
    Look(Repository *repository, const Branch *head, const Branch *upstream,
         std::optional<Oid> tip = {})
        : repository_(repository), git_(repository->handle.get()),
          upstream_name_(to_utf8(zBranchMerge(upstream))),
          head_(target_of(git_, to_utf8(zBranchMerge(head)))),
          agreed_(target_of(git_, agreed_name(head))), server_(target_of(git_, server_name(head))),
          tracked_(tip ? tip : target_of(git_, upstream_name_)) {}

    // A branch that holds what the server has goes out from where it is.
    void find(Standing &standing, Losses losses) {
        if (is_even()) return take_head();
        find_unsent(standing);
        if (losses == Losses::count) find_lost(standing);
    }
    bool is_lost_unknown() const;
    bool find_ground(Standing &standing);

  private:
    bool is_even() const {
        const git::Commit ours = head_ ? commit_of(git_, *head_) : git::Commit();
        const git::Commit theirs = tracked_ ? commit_of(git_, *tracked_) : git::Commit();
        return ours && theirs &&
               git_oid_equal(git_commit_tree_id(ours.get()), git_commit_tree_id(theirs.get()));
    }
    void take_head() { base_ = head_; }
    void find_unsent(Standing &standing);
    void find_lost(Standing &standing);
    bool is_noted(const Oid &id) const;
    std::vector<Oid> known_tips() const;
    bool is_of_update(const Oid &id, const Ids &trees) const;
    void find_by_line(Standing &standing, const Ids &known);
    void choose_base(const std::vector<Oid> &border);
    std::optional<Oid> find_fork(const Ids &theirs) const;
    bool give_back(Standing &standing, Tree *before, Tree *after);

    Repository *repository_;
    git_repository *git_;
    std::string upstream_name_;
    std::optional<Oid> head_, agreed_, server_, tracked_;
    std::optional<Oid> base_{}; // the newest commit of the branch that is all the server's
};

bool Look::is_noted(const Oid &id) const {
    for (const auto &noted : {agreed_, server_, tracked_})
        if (noted && zOidIsEqual(&*noted, &id)) return true;
    return false;
}

// Of what the server had at any time, as far as that is known.
std::vector<Oid> Look::known_tips() const {
    std::vector<Oid> tips = former_targets(git_, upstream_name_);
    for (const auto &noted : {agreed_, server_, tracked_})
        if (noted) tips.push_back(*noted);
    return tips;
}

void Look::find_unsent(Standing &standing) {
    if (!head_) return;
    if (is_noted(*head_)) return take_head();
    const Ids known = ancestors_of(git_, known_tips());
    if (!agreed_) return find_by_line(standing, known);
    std::vector<Oid> border;
    each_ancestor(git_, {*head_}, [&](const Oid &id) {
        const bool is_known = known.contains(id);
        (is_known ? border : standing.unsent).push_back(id);
        return !is_known;
    });
    choose_base(border);
}

// Of several that the branch brought together the one that is noted; else that of its own line.
void Look::choose_base(const std::vector<Oid> &border) {
    Ids found(border.begin(), border.end());
    if (found.contains(*agreed_)) {
        base_ = agreed_;
        return;
    }
    along_line(git_, *head_, [&](const Oid &id) {
        if (found.contains(id)) base_ = id;
        return !base_;
    });
    if (!base_ && !border.empty()) base_ = border.front();
}

// What an update made bears its mark; what was sent became a commit of the server's with one tree.
bool Look::is_of_update(const Oid &id, const Ids &trees) const {
    const git::Commit commit = commit_of(git_, id);
    if (!commit) return false;
    return std::string(git_commit_author(commit.get())->name) == "remote" ||
           trees.contains(*git::oid(git_commit_tree_id(commit.get())));
}

// In a copy without a note, which an older version made.
void Look::find_by_line(Standing &standing, const Ids &known) {
    Ids trees;
    for (const Oid &id : known_tips())
        if (const git::Commit commit = commit_of(git_, id))
            trees.insert(*git::oid(git_commit_tree_id(commit.get())));
    along_line(git_, *head_, [&](const Oid &id) {
        if (known.contains(id) || is_of_update(id, trees))
            base_ = id;
        else
            standing.unsent.push_back(id);
        return !base_;
    });
}

// ---- What the server lost

bool Look::is_lost_unknown() const {
    if (!server_ || !tracked_ || zOidIsEqual(&*server_, &*tracked_)) return false;
    return !leads_to(git_, *tracked_, *server_) && !leads_to(git_, *server_, *tracked_) &&
           !along_line(git_, *tracked_, [](const Oid &) { return true; });
}

void Look::find_lost(Standing &standing) {
    if (!head_ || !server_ || !tracked_ || zOidIsEqual(&*server_, &*tracked_)) return;
    if (leads_to(git_, *tracked_, *server_) || is_lost_unknown()) return;
    standing.went_back = true;
    standing.from = *server_;
    standing.to = *tracked_;
    standing.fork = find_fork(ancestors_of(git_, {*tracked_}));
}

// By the history of what was lost; where a part of that was never here, by what was tracked then.
std::optional<Oid> Look::find_fork(const Ids &theirs) const {
    std::optional<Oid> fork;
    each_ancestor(git_, {*server_}, [&](const Oid &id) {
        if (!fork && theirs.contains(id)) fork = id;
        return !fork;
    });
    for (const Oid &id : fork ? std::vector<Oid>() : former_targets(git_, upstream_name_))
        if (!fork && theirs.contains(id) && !zOidIsEqual(&id, &*tracked_)) fork = id;
    return fork;
}

// ---- The ground

bool Look::find_ground(Standing &standing) {
    if (base_) standing.ground = tree_of(repository_, *base_);
    if (base_ && !standing.ground) return false;
    if (!standing.went_back || !standing.ground) return true;
    if (!standing.fork) return standing.ground.reset(), true;
    const TreePtr before = tree_of(repository_, *standing.fork);
    const TreePtr after = tree_of(repository_, standing.from);
    return before && after && give_back(standing, before.get(), after.get());
}

bool is_object(TreePairs::Entry entry, TreePairs::Entry other) {
    if (!entry || !other) return !entry && !other;
    return git_oid_equal(git_tree_entry_id(entry), git_tree_entry_id(other));
}

// Files that the copy has as they were lost become what the server kept. What is neither the one
// nor the other, of an update of some files only, leaves the ground: both sides have it then, each
// its own. What the user may not read, and has not got, is none of his.
bool Look::give_back(Standing &standing, Tree *before, Tree *after) {
    const AuthdbPtr rules(zAuthdbOpen(repository_));
    const Owned<TreeBuilder, zTreeBuilderFree> builder(
        zTreeBuilderNew(repository_, standing.ground.get()));
    if (!rules || !builder) return false;
    git_index *index = builder->index->handle.get();
    std::vector<std::pair<std::string, git_index_entry>> kept;
    bool done = true;
    const auto take = [&](const std::string &path, auto kept_side, auto lost_side) {
        git::Entry ours;
        git_tree_entry_bypath(out(ours), standing.ground->handle.get(), path.c_str());
        git_error_clear();
        if (ours && git_tree_entry_type(ours.get()) == GIT_OBJECT_TREE) ours.reset();
        const bool is_lost = is_object(ours.get(), lost_side);
        if (!is_lost && (!ours || is_object(ours.get(), kept_side))) return;
        if (!zAuthdbEntryReadable(rules.get(), to_wide(path).c_str())) return;
        if (git_index_get_bypath(index, path.c_str(), 0))
            done = done && index_drop(builder->index.get(), path.c_str());
        if (!is_lost || !kept_side) return;
        git_index_entry entry{};
        entry.id = *git_tree_entry_id(kept_side);
        entry.mode = git_tree_entry_filemode(kept_side);
        kept.emplace_back(path, entry);
    };
    if (!TreePairs(git_, false, take).walk(before->handle.get(), after->handle.get()) || !done)
        return false;
    const StrictOff partial;
    for (auto &[path, entry] : kept) {
        entry.path = path.c_str();
        if (!index_enter(builder->index.get(), entry)) return false;
    }
    standing.ground.reset(zTreeBuilderWrite(builder.get(), repository_));
    return standing.ground != nullptr;
}

Standing find_standing(Look look) {
    Standing standing;
    look.find(standing, Losses::count);
    return standing;
}

void write_note(Repository *repository, const std::string &name, const Oid *id) {
    const KeptFailure kept;
    const std::u16string wide = to_wide(name);
    if (!id || reference_is_at(repository, wide.c_str(), *id)) return;
    if (!ReferencePtr(zReferenceCreate(repository, wide.c_str(), id))) log_raised(kWarning);
}

} // namespace

bool look_at_standing(Repository *repository, const Branch *head, const Branch *upstream,
                      Losses losses, Standing &standing) {
    Look look(repository, head, upstream);
    look.find(standing, losses);
    return look.find_ground(standing);
}

TreePtr take_ground(Repository *repository, Standing &standing) {
    if (standing.ground) return std::move(standing.ground);
    const Owned<TreeBuilder, zTreeBuilderFree> builder(zTreeBuilderNew(repository, nullptr));
    return TreePtr(builder ? zTreeBuilderWrite(builder.get(), repository) : nullptr);
}

Standing find_standing(Repository *repository, const Branch *head, const Branch *upstream,
                       const Oid &tip) {
    return find_standing(Look(repository, head, upstream, tip));
}

bool lacks_history(Repository *repository, const Branch *head, const Branch *upstream,
                   const Oid &tip) {
    return Look(repository, head, upstream, tip).is_lost_unknown();
}

std::optional<Oid> agreed_commit(Repository *repository, const Branch *head) {
    return target_of(repository->handle.get(), agreed_name(head));
}

void note_agreed(Repository *repository, const Branch *head, const Oid *agreed, const Oid *server) {
    write_note(repository, agreed_name(head), agreed);
    write_note(repository, server_name(head), server);
}

} // namespace zev

using namespace zev;

namespace {

struct Branches {
    BranchPtr head, upstream;
    explicit Branches(Repository *repository)
        : head(zBranchHead(repository)), upstream(head ? zBranchUpstream(head.get()) : nullptr) {}
};

} // namespace

bool zRemoteStanding(RemoteStanding *out_standing, Repository *repository, UnsentCallback callback,
                     void *context) try {
    if (!out_standing || !repository) return fail_args();
    const Branches branches(repository);
    if (!branches.upstream) return false;
    const Standing found =
        find_standing(Look(repository, branches.head.get(), branches.upstream.get()));
    *out_standing = {found.unsent.size(), found.went_back, found.from, found.to};
    for (const Oid &id : found.unsent) {
        const CommitPtr commit(callback ? zCommitByid(repository, &id) : nullptr);
        if (callback && (!commit || !callback(commit.get(), context))) return commit != nullptr;
    }
    return true;
} catch (...) {
    return fail_thrown();
}

Tree *zRemoteGround(Repository *repository) try {
    if (!repository) return fail_args();
    const Branches branches(repository);
    Standing found;
    if (!branches.upstream || !look_at_standing(repository, branches.head.get(),
                                                branches.upstream.get(), Losses::count, found))
        return nullptr;
    return take_ground(repository, found).release();
} catch (...) {
    return fail_thrown();
}
