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

#include <algorithm>
#include <deque>
#include <string>

namespace zev {

namespace {

using Log = Owned<git_reflog, git_reflog_free>;

// ---- References

// Bytes that the file of a note has for the branch's name, beside what a lock puts behind them.
constexpr size_t kLongest = 200;

std::string digest_of(const std::string &text) {
    git_oid id;
    const int code = git_odb_hash(&id, text.data(), text.size(), GIT_OBJECT_BLOB);
    return code < 0 ? text : git_oid_tostr_s(&id);
}

std::string note_name(const char *kind, const Branch *head) {
    const std::string branch = to_utf8(zBranchName(head));
    std::string name;
    for (const char c : branch) name += c == '/' ? "%2F" : c == '%' ? "%25" : std::string(1, c);
    if (name.size() > kLongest) name = "%" + digest_of(branch);
    return std::string("refs/zev/") + kind + name;
}
std::string agreed_name(const Branch *head) { return note_name("agreed/", head); }
std::string server_name(const Branch *head) { return note_name("server/", head); }

std::optional<Oid> target_of(git_repository *git, const std::string &name) {
    const Finally clear([] { git_error_clear(); });
    git_oid id;
    if (git_reference_name_to_id(&id, git, name.c_str()) < 0) return {};
    return *git::oid(&id);
}

// Where a reference was, the newest first, as far as its log goes. A move that was taken back
// stands in the log, too: the next one doesn't go on from it.
std::vector<Oid> former_targets(git_repository *git, const std::string &name) {
    const Finally clear([] { git_error_clear(); });
    std::vector<Oid> found;
    Log log;
    if (git_reference_has_log(git, name.c_str()) != 1 ||
        git_reflog_read(out(log), git, name.c_str()) < 0)
        return found;
    std::optional<Oid> next = target_of(git, name); // where the later one went on from
    for (size_t n = 0; n < git_reflog_entrycount(log.get()); ++n) {
        const git_reflog_entry *entry = git_reflog_entry_byindex(log.get(), n);
        const Oid target = *git::oid(git_reflog_entry_id_new(entry));
        if (next && zOidIsEqual(&*next, &target)) found.push_back(target);
        next = *git::oid(git_reflog_entry_id_old(entry));
    }
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

// Visits a commit, null where it is missing, and what it leads to, each once, the nearer first;
// false from `visit` goes no further behind one.
template <class F, class Parents = decltype(&parents_of)>
void each_ancestor(git_repository *git, const std::vector<Oid> &tips, F visit,
                   Parents parents = parents_of) {
    std::deque<Oid> pending(tips.begin(), tips.end());
    for (Ids seen; !pending.empty(); pending.pop_front()) {
        if (!seen.insert(pending.front()).second) continue;
        const git::Commit commit = commit_of(git, pending.front());
        if (!visit(pending.front(), commit.get())) continue;
        const std::vector<Oid> behind = parents(commit.get());
        pending.insert(pending.end(), behind.begin(), behind.end());
    }
}

bool is_automatic(const git_commit *commit) {
    return std::string(git_commit_author(commit)->name) == "remote";
}

// Behind a ground stand the commits that it leaves out, and then the one that it was laid on.
std::vector<Oid> sent_parents_of(const git_commit *commit) {
    std::vector<Oid> parents = parents_of(commit);
    if (parents.size() > 1 && is_automatic(commit)) parents.erase(parents.begin());
    return parents;
}

template <class Parents>
Ids ancestors_of(git_repository *git, const std::vector<Oid> &tips, Parents parents) {
    Ids found;
    each_ancestor(
        git, tips, [&](const Oid &id, const git_commit *) { return found.insert(id), true; },
        parents);
    return found;
}

bool leads_to(git_repository *git, const Oid &from, const Oid &to) {
    bool found = false;
    each_ancestor(git, {from}, [&](const Oid &id, const git_commit *) {
        found = found || zOidIsEqual(&id, &to);
        return !found;
    });
    return found;
}

// From a commit to its first parent, and so on, as far as they are here, until `visit` gives false.
template <class F> void along_line(git_repository *git, const Oid &tip, F visit) {
    for (Oid id = tip; visit(id);) {
        const std::vector<Oid> parents = parents_of(commit_of(git, id).get());
        if (parents.empty()) return;
        id = parents.front();
    }
}

bool is_empty(git_repository *git, const Oid &id) {
    const git::Commit commit = commit_of(git, id);
    git::Tree tree;
    const Finally clear([] { git_error_clear(); });
    if (!commit || git_commit_tree(out(tree), commit.get()) < 0) return false;
    return git_tree_entrycount(tree.get()) == 0;
}

// ---- The look

class Look {
  public:
    Look(Repository *repository, const Branch *head, const Branch *upstream, ServerTip tip)
        : repository_(repository), git_(repository->handle.get()),
          head_name_(to_utf8(zBranchMerge(head))), upstream_name_(to_utf8(zBranchMerge(upstream))),
          agreed_name_(agreed_name(head)), head_(target_of(git_, head_name_)),
          agreed_(target_of(git_, agreed_name_)), server_(target_of(git_, server_name(head))),
          tip_(std::move(tip)) {
        // Of what the server never had it is the ground alone that may be noted.
        if (agreed_ && is_news() && !is_empty(git_, *agreed_)) agreed_.reset();
    }

    // A branch that holds what the server has goes out from where it is. False, raised, with a note
    // that was never its own.
    bool find(Standing &standing, Losses losses) {
        standing.head = head_;
        const bool is_even = holds_all();
        const bool found = is_even ? take_head() : find_unsent(standing);
        if (!is_even && losses == Losses::count) find_lost(standing);
        standing.base = base_;
        return found;
    }
    std::optional<Oid> find_missing() const;
    bool find_ground(Standing &standing);

  private:
    bool is_news() const { return !tip_ && !server_; } // to the server
    bool holds_all() const {
        const git::Commit ours = head_ ? commit_of(git_, *head_) : git::Commit();
        const git::Commit theirs = tip_ ? commit_of(git_, *tip_) : git::Commit();
        return ours && theirs &&
               git_oid_equal(git_commit_tree_id(ours.get()), git_commit_tree_id(theirs.get()));
    }
    bool take_head() { return base_ = head_, true; }
    bool find_unsent(Standing &standing);
    void find_lost(Standing &standing);
    bool is_noted(const Oid &id) const;
    bool was_head(const Oid &id) const;
    std::vector<Oid> noted() const;
    Ids known() const;
    std::vector<Oid> former_tips() const;
    bool is_of_update(const Oid &id, const Ids &trees) const;
    void find_by_line(Standing &standing);
    void choose_base(const std::vector<Oid> &border);
    std::optional<Oid> find_fork() const;
    bool give_back(Standing &standing, Tree *before, Tree *after);

    Repository *repository_;
    git_repository *git_;
    std::string head_name_, upstream_name_, agreed_name_;
    std::optional<Oid> head_, agreed_, server_;
    ServerTip tip_;
    std::optional<Oid> base_{}; // the newest commit of the branch that is all the server's
};

bool contains(const std::vector<Oid> &ids, const Oid &id) {
    return std::ranges::any_of(ids, [&](const Oid &each) { return zOidIsEqual(&each, &id); });
}

bool Look::is_noted(const Oid &id) const { return contains(noted(), id); }
bool Look::was_head(const Oid &id) const { return contains(former_targets(git_, head_name_), id); }

std::vector<Oid> Look::noted() const {
    std::vector<Oid> ids;
    for (const auto &id : {agreed_, server_, tip_})
        if (id) ids.push_back(*id);
    return ids;
}

// All that the server has or had. What lies behind the ground of a branch that is news is not.
Ids Look::known() const {
    const std::vector<Oid> tips = noted();
    return is_news() ? Ids(tips.begin(), tips.end()) : ancestors_of(git_, tips, sent_parents_of);
}

bool Look::find_unsent(Standing &standing) {
    if (!head_) return true;
    if (is_noted(*head_)) return take_head();
    if (!agreed_ && tip_) return find_by_line(standing), true;
    const Ids sent = known();
    std::vector<Oid> border;
    each_ancestor(git_, {*head_}, [&](const Oid &id, const git_commit *commit) {
        const bool is_sent = sent.contains(id);
        if (is_sent || commit) (is_sent ? border : standing.unsent).push_back(id);
        return !is_sent;
    });
    if (!tip_) return true;
    if (border.empty() && !was_head(*agreed_)) return raise_not_found(agreed_name_);
    return choose_base(border), true;
}

// Of several that the branch brought together the one that is noted; else that of its own line. One
// that git rewrote from its first commit on leads to none, and went out from the one that is noted.
void Look::choose_base(const std::vector<Oid> &border) {
    Ids found(border.begin(), border.end());
    if (found.contains(*agreed_) || found.empty()) {
        base_ = agreed_;
        return;
    }
    along_line(git_, *head_, [&](const Oid &id) {
        if (found.contains(id)) base_ = id;
        return !base_;
    });
    if (!base_) base_ = border.front();
}

// What an update made bears its mark; what was sent became a commit of the server's with one tree.
bool Look::is_of_update(const Oid &id, const Ids &trees) const {
    const git::Commit commit = commit_of(git_, id);
    return commit && (is_automatic(commit.get()) ||
                      trees.contains(*git::oid(git_commit_tree_id(commit.get()))));
}

// Where the tracking reference stood that the server's branch no longer leads to, it was lost, or
// somebody went there himself. As far as that can be seen.
std::vector<Oid> Look::former_tips() const {
    Ids theirs;
    bool is_cut = false;
    each_ancestor(git_, {*tip_}, [&](const Oid &id, const git_commit *commit) {
        is_cut = is_cut || !commit;
        return theirs.insert(id), true;
    });
    std::vector<Oid> tips = noted();
    for (const Oid &id : former_targets(git_, upstream_name_))
        if (is_cut || theirs.contains(id)) tips.push_back(id);
    return tips;
}

// In a copy without a note, which an older version made.
void Look::find_by_line(Standing &standing) {
    const std::vector<Oid> tips = former_tips();
    const Ids sent = ancestors_of(git_, tips, parents_of);
    Ids trees;
    for (const Oid &id : tips)
        if (const git::Commit commit = commit_of(git_, id))
            trees.insert(*git::oid(git_commit_tree_id(commit.get())));
    along_line(git_, *head_, [&](const Oid &id) {
        if (sent.contains(id) || is_of_update(id, trees))
            base_ = id;
        else
            standing.unsent.push_back(id);
        return !base_;
    });
}

// ---- What the server lost

// A list has first parents only: as long as any parent is missing, that may lead there.
std::optional<Oid> Look::find_missing() const {
    std::optional<Oid> missing;
    if (!server_ || !tip_ || leads_to(git_, *server_, *tip_)) return missing;
    bool found = false;
    each_ancestor(git_, {*tip_}, [&](const Oid &id, const git_commit *commit) {
        found = found || zOidIsEqual(&id, &*server_);
        if (!commit && !missing) missing = id;
        return !found;
    });
    return found ? std::nullopt : missing;
}

void Look::find_lost(Standing &standing) {
    if (!head_ || !server_) return;
    if (tip_ && (leads_to(git_, *tip_, *server_) || find_missing())) return;
    standing.went_back = true;
    standing.from = *server_;
    if (!tip_) return;
    standing.to = *tip_;
    standing.fork = find_fork();
}

// By the history of what was lost; where a part of that was never here, by what was tracked before.
std::optional<Oid> Look::find_fork() const {
    const Ids theirs = ancestors_of(git_, {*tip_}, parents_of);
    std::optional<Oid> fork;
    each_ancestor(git_, {*server_}, [&](const Oid &id, const git_commit *) {
        if (!fork && theirs.contains(id)) fork = id;
        return !fork;
    });
    bool is_newest = true; // which may be where it went back to
    for (const Oid &id : fork ? std::vector<Oid>() : former_targets(git_, upstream_name_)) {
        const bool is_tip = is_newest && zOidIsEqual(&id, &*tip_);
        if (!fork && !is_tip && theirs.contains(id)) fork = id;
        is_newest = false;
    }
    return fork;
}

// ---- The ground

bool Look::find_ground(Standing &standing) {
    if (!tip_ || (standing.went_back && !standing.fork)) return true;
    if (base_) standing.ground = tree_of(repository_, *base_);
    if (base_ && !standing.ground) return false;
    if (!standing.went_back || !standing.ground) return true;
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

// Null takes the note away.
void write_note(Repository *repository, const std::string &name, const Oid *id) {
    const KeptFailure kept;
    const std::u16string wide = to_wide(name);
    if (id ? reference_is_at(repository, wide.c_str(), *id)
           : !zReferenceExists(repository, wide.c_str()))
        return;
    const ReferencePtr note(id ? zReferenceCreate(repository, wide.c_str(), id)
                               : zReferenceLookup(repository, wide.c_str()));
    if (!note || (!id && !zReferenceDelete(note.get()))) log_raised(kWarning);
}

} // namespace

ServerTip tracked_tip(Repository *repository, const Branch *upstream) {
    return target_of(repository->handle.get(), to_utf8(zBranchMerge(upstream)));
}

bool look_at_standing(Repository *repository, const Branch *head, const Branch *upstream,
                      const ServerTip &tip, Losses losses, Standing &standing) {
    Look look(repository, head, upstream, tip);
    return look.find(standing, losses) && look.find_ground(standing);
}

TreePtr take_ground(Repository *repository, Standing &standing) {
    if (standing.ground) return std::move(standing.ground);
    const Owned<TreeBuilder, zTreeBuilderFree> builder(zTreeBuilderNew(repository, nullptr));
    return TreePtr(builder ? zTreeBuilderWrite(builder.get(), repository) : nullptr);
}

Standing find_standing(Repository *repository, const Branch *head, const Branch *upstream,
                       const ServerTip &tip) {
    const KeptFailure kept;
    Standing standing;
    Look(repository, head, upstream, tip).find(standing, Losses::count);
    return standing;
}

std::optional<Oid> missing_history(Repository *repository, const Branch *head,
                                   const Branch *upstream, const Oid &tip) {
    return Look(repository, head, upstream, tip).find_missing();
}

bool is_led_to(Repository *repository, const Oid &from, const Oid &to) {
    return leads_to(repository->handle.get(), from, to);
}

TreePtr tree_of(Repository *repository, const Oid &id) {
    const CommitPtr commit(zCommitByid(repository, &id));
    return TreePtr(commit ? zCommitTree(commit.get()) : nullptr);
}

std::optional<Oid> agreed_commit(Repository *repository, const Branch *head) {
    return target_of(repository->handle.get(), agreed_name(head));
}

void note_agreed(Repository *repository, const Branch *head, const Oid &agreed) {
    write_note(repository, agreed_name(head), &agreed);
}
void note_server(Repository *repository, const Branch *head, const std::optional<Oid> &server) {
    write_note(repository, server_name(head), server ? &*server : nullptr);
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
    const Standing found = find_standing(repository, branches.head.get(), branches.upstream.get(),
                                         tracked_tip(repository, branches.upstream.get()));
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
    if (!branches.upstream ||
        !look_at_standing(repository, branches.head.get(), branches.upstream.get(),
                          tracked_tip(repository, branches.upstream.get()), Losses::count, found))
        return nullptr;
    return take_ground(repository, found).release();
} catch (...) {
    return fail_thrown();
}
