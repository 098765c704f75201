// A commit is made in steps: signature, tip of the reference, other parents, object, sync, move.
// The reference moves last, only from the tip that was read, when all that it will name is on the
// disk.
#include "objects/store/commit.hpp"

#include "common/errno.hpp"
#include "common/text.hpp"
#include "objects/store/object.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/tree_changes.hpp"
#include "system/os.hpp"
#include "zev/commit.h"
#include "zev/lang.h"
#include "zev/log.h"
#include "zev/repository.h"
#include "zev/tree.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

using namespace zev;

namespace {

// A chain of symbolic references longer than this is a circle.
constexpr int kLinks = 10;

// ---- A new commit, step by step

struct NewCommit {
    Repository *repository;
    Tree *tree;
    std::span<const Oid> others; // further parents
    std::string author{}, message{};
    std::string name{}; // of the reference that moves: the last of a symbolic chain
    git_oid tip{};      // where that points, if `born`
    bool born = false;
    bool moves = false;
    git::Signature signature{};
    std::vector<git::Commit> parents{}; // the tip comes first
    git::Commit made{};

    bool sign();
    bool find_reference(const zwchar *reference);
    bool find_unborn();
    bool find_parent();
    bool find_others();
    bool write();
    bool sync();
    bool move_reference();
    bool has_moved() const;
};

// Author and committer are one text, as name and as address. It stands in one line of the commit's
// header, which a control character would break or blur; libgit2 cuts points and quotes off its
// ends, as git does.
bool NewCommit::sign() {
    const auto is_control = [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; };
    std::ranges::replace_if(author, is_control, ' ');
    if (author.find_first_of("<>") == std::string::npos &&
        git_signature_now(out(signature), author.c_str(), author.c_str()) == 0)
        return true;
    raise_args(zI18nTextLookup(zI18nCurrentLang(), u"odb.eInvalidAuthor"));
    return fail_raised();
}

// A short name becomes the full one, and a symbolic reference the one that it leads to.
bool NewCommit::find_reference(const zwchar *reference) {
    if (!reference) return true;
    moves = true;
    name = to_utf8(reference);
    git::Reference found;
    int code = git_reference_dwim(out(found), repository->handle.get(), name.c_str());
    if (code == GIT_ENOTFOUND) return find_unborn();
    if (code < 0) return fail_git(code);
    name = git_reference_name(found.get());
    tip = *git_reference_target(found.get());
    born = true;
    return find_parent();
}

// There is no tip, but the name may be that of a symbolic reference to the one that is to be made.
bool NewCommit::find_unborn() {
    for (int links = 0; links < kLinks; ++links) {
        git::Reference found;
        int code = git_reference_lookup(out(found), repository->handle.get(), name.c_str());
        if (code == GIT_ENOTFOUND) return true;
        if (code < 0) return fail_git(code);
        const char *next = git_reference_symbolic_target(found.get());
        if (!next) break; // made since
        name = next;
    }
    git_error_set_str(GIT_ERROR_REFERENCE, "reference changed or refers to itself");
    return fail_git(GIT_EMODIFIED);
}

bool NewCommit::find_parent() {
    git::Commit parent;
    int code = git_commit_lookup(out(parent), repository->handle.get(), &tip);
    if (!code) return parents.push_back(std::move(parent)), true;
    // The tip may be an annotated tag, which no commit can follow.
    git_error_set_str(GIT_ERROR_OBJECT, "current tip is not the first parent");
    return fail_git(code == GIT_ENOTFOUND ? GIT_EMODIFIED : code);
}

// A commit that is a parent already is not named twice.
bool NewCommit::find_others() {
    for (const Oid &id : others) {
        auto is_same = [&](const git::Commit &known) {
            return git_oid_equal(git_commit_id(known.get()), git::oid(&id));
        };
        if (std::ranges::any_of(parents, is_same)) continue;
        git::Commit parent;
        int code = git_commit_lookup(out(parent), repository->handle.get(), git::oid(&id));
        if (code < 0) return fail_git(code);
        parents.push_back(std::move(parent));
    }
    return true;
}

// The object alone; no reference knows of it yet.
bool NewCommit::write() {
    git_oid id;
    std::vector<const git_commit *> named;
    for (const git::Commit &parent : parents) named.push_back(parent.get());
    int code =
        git_commit_create(&id, repository->handle.get(), nullptr, signature.get(), signature.get(),
                          nullptr, message.c_str(), tree->handle.get(), named.size(), named.data());
    if (!code) code = git_commit_lookup(out(made), repository->handle.get(), &id);
    return code < 0 ? fail_git(code) : true;
}

bool NewCommit::sync() {
    const zwchar *path = zRepositoryPath(repository);
    return path && (os::sync_tree(path) ? true : fail_errno(path));
}

bool NewCommit::has_moved() const {
    git_oid now;
    return git_reference_name_to_id(&now, repository->handle.get(), name.c_str()) == 0 &&
           git_oid_equal(&now, git_commit_id(made.get()));
}

// Only from where it was read: a commit that came in between is never lost. libgit2 fails also when
// the reference has moved and only its directory can't be synced. Who took that for a failure would
// put back an index that is older than the head.
bool NewCommit::move_reference() {
    if (!moves) return true;
    std::string log = !born                ? "commit (initial): "
                      : parents.size() > 1 ? "commit (merge): "
                                           : "commit: ";
    if (const char *summary = git_commit_summary(made.get())) log += summary;
    git::Reference moved;
    int code = git_reference_create_matching(out(moved), repository->handle.get(), name.c_str(),
                                             git_commit_id(made.get()), born, born ? &tip : nullptr,
                                             log.c_str());
    if (code >= 0) return true;
    fail_git(code);
    if (has_moved()) return log_raised(kWarning), true;
    if (!born) drop_begun_log(repository->handle.get(), name.c_str());
    return false;
}

// ---- Reading

DiffList *tree_changes(Commit *old_commit, Commit *new_commit, PathSpec *spec, DiffCancel cancel) {
    Owned<Tree, zTreeFree> old_tree, new_tree;
    if (old_commit && !(old_tree.reset(zCommitTree(old_commit)), old_tree)) return nullptr;
    if (new_commit && !(new_tree.reset(zCommitTree(new_commit)), new_tree)) return nullptr;
    return diff_trees(old_tree.get(), new_tree.get(), spec, cancel);
}

bool is_before(const git_oid &a, const git_oid &b) { return git_oid_cmp(&a, &b) < 0; }

bool is_same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// A line each; none of a file that isn't there.
std::vector<git_oid> read_ids(const std::u16string &path) {
    std::ifstream file(to_utf8(path));
    std::vector<git_oid> found;
    git_oid id;
    for (std::string line; std::getline(file, line);)
        if (git_oid_fromstr(&id, line.c_str()) == 0) found.push_back(id);
    std::ranges::sort(found, is_before);
    return found;
}

unsigned parent_count(const Commit *commit) {
    const git_commit *handle = commit->handle.get();
    const unsigned count = git_commit_parentcount(handle);
    return count && !is_cut(commit->owner, git_commit_id(handle)) ? count : 0;
}

Failure fail_walk(Here at = {}) {
    log_raised(kError, at, kFacilityVcs);
    return {};
}

} // namespace

namespace zev {

Commit *commit_create(const zwchar *reference, const zwchar *author, const zwchar *message,
                      Tree *tree, const std::function<bool()> &before_move,
                      std::span<const Oid> others,
                      const std::function<bool(const Oid &made)> &after_move) try {
    NewCommit commit{.repository = tree->owner, .tree = tree, .others = others};
    commit.author = to_utf8(without_controls(author));
    commit.message = to_utf8(without_controls(message));
    if (!commit.sign() || !commit.find_reference(reference) || !commit.find_others() ||
        !commit.write() || !commit.sync() || (before_move && !before_move()) ||
        !commit.move_reference())
        return nullptr;
    if (after_move && !after_move(*git::oid(git_commit_id(commit.made.get())))) return nullptr;
    // The commit stands whether or not this succeeds; all that it needs is on the disk.
    if (commit.moves && !commit.sync()) log_raised(kWarning);
    return wrap<Commit>(git::Object(git::as<git_object>(commit.made.release())), tree->owner);
} catch (...) {
    return fail_thrown();
}

bool is_cut(Repository *repository, const git_oid *commit) {
    ShallowEnds &ends = repository->ends;
    if (ends.path.empty())
        ends.path = to_wide(git_repository_commondir(repository->handle.get())) + u"shallow";
    struct stat now {};
    if (!os::stat(ends.path.c_str(), &now)) now = {};
    if (!is_same_file(now, ends.seen)) {
        ends.ids = read_ids(ends.path);
        ends.seen = now;
    }
    return std::ranges::binary_search(ends.ids, *commit, is_before);
}

} // namespace zev

Commit *zCommitCreate(const zwchar *reference, const zwchar *author, const zwchar *message,
                      Tree *tree) {
    if (!author || !message || !tree) return fail_args();
    return commit_create(reference, author, message, tree);
}

Commit *zCommitCreateWith(const zwchar *reference, const zwchar *author, const zwchar *message,
                          Tree *tree, const Oid *others, uint64_t count) {
    if (!author || !message || !tree || (count && !others)) return fail_args();
    return commit_create(reference, author, message, tree, {}, {others, count});
}

Commit *zCommitByid(Repository *repository, const Oid *id) {
    return by_peeled_id<Commit>(repository, id);
}
Commit *zCommitByprefix(Repository *repository, const Oid *prefix, uint64_t length) {
    return by_prefix<Commit>(repository, prefix, length);
}
Commit *zCommitByref(Repository *repository, const zwchar *name) {
    return by_reference<Commit>(repository, name);
}
Commit *zCommitHead(Repository *repository) { return by_reference<Commit>(repository, u"HEAD"); }
void zCommitFree(Commit *commit) { delete commit; }

const Oid *zCommitId(const Commit *commit) {
    return commit ? git::oid(git_commit_id(commit->handle.get())) : fail_args();
}
Repository *zCommitOwner(const Commit *commit) { return commit ? commit->owner : fail_args(); }
const Oid *zCommitTreeId(const Commit *commit) {
    return commit ? git::oid(git_commit_tree_id(commit->handle.get())) : fail_args();
}

Tree *zCommitTree(const Commit *commit) {
    if (!commit) return fail_args();
    git::Tree tree;
    if (int code = git_commit_tree(out(tree), commit->handle.get()); code < 0)
        return fail_git(code);
    return wrap<Tree>(git::Object(git::as<git_object>(tree.release())), commit->owner);
}

const zwchar *zCommitAuthor(const Commit *commit) {
    return commit ? park(git_commit_author(commit->handle.get())->name) : fail_args();
}
const zwchar *zCommitMessage(const Commit *commit) {
    return commit ? park(git_commit_message(commit->handle.get())) : fail_args();
}

Time *zCommitTime(Time *out_time, const Commit *commit) {
    if (!out_time || !commit) return fail_args();
    *out_time = {git_commit_time(commit->handle.get()), 0};
    return out_time;
}

uint64_t zCommitParentCount(const Commit *commit) try {
    if (!commit) return fail_args(), 0;
    return parent_count(commit);
} catch (...) {
    return fail_thrown(), 0;
}

const Oid *zCommitParentIdAt(const Commit *commit, uint64_t n) {
    if (!commit) return fail_args();
    if (n >= zCommitParentCount(commit)) return raise_not_found();
    return git::oid(git_commit_parent_id(commit->handle.get(), static_cast<unsigned>(n)));
}

// Where a shallow clone ends libgit2 would look for the parent that was left behind.
Commit *zCommitParent(const Commit *commit) {
    if (!commit) return fail_args();
    const unsigned first =
        zCommitParentCount(commit) ? 0 : git_commit_parentcount(commit->handle.get());
    git::Commit parent;
    if (int code = git_commit_parent(out(parent), commit->handle.get(), first); code < 0)
        return fail_git(code);
    return wrap<Commit>(git::Object(git::as<git_object>(parent.release())), commit->owner);
}

const Oid *zCommitParentId(const Commit *commit) { return zCommitParentIdAt(commit, 0); }

DiffList *zCommitChanges(Commit *commit, PathSpec *spec, DiffCancel cancel) try {
    if (!commit) return fail_args();
    const unsigned count = parent_count(commit);
    if (!count) return tree_changes(nullptr, commit, spec, cancel);
    Commit parent{nullptr, commit->owner};
    int code = GIT_ENOTFOUND; // the first parent that this store holds
    for (unsigned n = 0; n < count && code < 0; ++n)
        code = git_commit_parent(out(parent.handle), commit->handle.get(), n);
    return code < 0 ? fail_git(code) : tree_changes(&parent, commit, spec, cancel);
} catch (...) {
    return fail_thrown();
}

DiffList *zCommitDiff(Commit *old_commit, Commit *new_commit, PathSpec *spec, DiffCancel cancel) {
    if (!old_commit && !new_commit) return fail_args();
    return tree_changes(old_commit, new_commit, spec, cancel);
}

bool zCommitWalk(Repository *repository, CommitCallback callback, void *context) {
    if (!repository || !callback) return fail_args();
    git::Revwalk walk;
    int code = git_revwalk_new(out(walk), repository->handle.get());
    git_oid id;
    if (!code) code = git_reference_name_to_id(&id, repository->handle.get(), "refs/heads/master");
    if (!code) code = git_revwalk_push(walk.get(), &id);
    while (!code && !(code = git_revwalk_next(&id, walk.get()))) {
        Commit *commit = by_id<Commit>(repository, git::oid(&id));
        if (!commit) return fail_walk();
        if (callback(commit, context)) return true;
    }
    if (code == GIT_ITEROVER) return true;
    return fail_git(code), fail_walk();
}
