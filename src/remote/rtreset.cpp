// Reset: the selected files become what they were at a revision, and the branch gets a commit in
// which they are as the server has them now. What differs between the two then is a change like any
// of the user's own, and nothing is rewritten on the server.
//
// The order in which things reach the disk, for a crash at any point, is that of an update, whose
// copies expire only with the second commit: before that everything goes back, and the files that
// have come so far are changes.
#include "remote/update_context.hpp"

#include "objects/notify/dialogs.hpp"
#include "objects/operations/checkout.hpp"
#include "objects/store/branch.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/strict.hpp"
#include "objects/work/file_mode.hpp"
#include "objects/work/treebuilder.hpp"
#include "zev/index.h"
#include "zev/object.h"
#include "zev/oid.h"
#include "zev/reference.h"
#include "zev/status.h"

#include <string>

using namespace zev;

namespace {

using BuilderPtr = Owned<TreeBuilder, zTreeBuilderFree>;
using StatusListPtr = Owned<StatusList, zStatusListFree>;

class Reset {
  public:
    Reset(Remote *remote, const Notify *notify) : context_{remote, notify} {}

    // In this order.
    bool prepare(const CheckSpec *given);
    bool ask();
    bool open_rights();
    bool fetch_latest();
    bool fetch_target();
    bool mix();
    bool check_out();
    bool commit_head();

    UpdateContext &context() { return context_; }

  private:
    bool fetch_matches(const Oid *id);
    BuilderPtr head_without_selection(TreePtr &tree);
    void insert_latest(TreeBuilder *builder, git_tree *from);
    TreePtr build_head();
    bool drop_unknown(Index *index, Tree *head);
    Repository *repository() { return context_.repository; }

    UpdateContext context_;
    AuthdbPtr rules_;
    TreePtr latest_; // the server's, null where it has none
    TreePtr target_;
    TreePtr mixed_; // what the work directory becomes
    std::u16string message_;
};

// ---- What a spec selects of a tree. May throw, as all below.

struct Selected {
    Matcher &matcher;
    std::function<bool(const char *path, const git_tree_entry *entry)> take;
    std::string path{};

    static int step(const char *root, const git_tree_entry *entry, void *context) try {
        auto &self = *static_cast<Selected *>(context);
        self.path.assign(root).append(git_tree_entry_name(entry));
        if (git_tree_entry_type(entry) == GIT_OBJECT_TREE)
            return self.matcher.may_match_below(self.path) ? 0 : 1;
        if (!self.matcher.matches(self.path)) return 0;
        return self.take(self.path.c_str(), entry) ? 0 : GIT_EUSER;
    } catch (...) {
        return fail_thrown(), GIT_EUSER;
    }
};

template <class F> bool each_selected(const Tree *tree, PathSpec *paths, F take) {
    Selected selected{spec_matcher(paths), take};
    const int code = git_tree_walk(tree->handle.get(), GIT_TREEWALK_PRE, Selected::step, &selected);
    return code < 0 && code != GIT_EUSER ? fail_git(code) : code == 0;
}

bool insert(TreeBuilder *builder, const char *path, const git_tree_entry *from) {
    git_index_entry entry{};
    entry.path = path;
    entry.id = *git_tree_entry_id(from);
    entry.mode = git_tree_entry_filemode(from);
    return index_enter(builder->index.get(), entry);
}

// ---- Preparation

bool Reset::prepare(const CheckSpec *given) {
    if (!zev::prepare(context_, given)) return false;
    PathSpec *paths = context_.paths();
    if (!zPathSpecSetOn(paths, Z_SPEC_NO_RENAMED | Z_SPEC_NO_TYPECHANGE | Z_SPEC_NO_UNCHANGED) ||
        !zPathSpecSetOff(paths, Z_SPEC_MUST_MATCH))
        return context_.tell(u"odb.eUnableToResolvePathspec");
    message_ = u"Revert to: ";
    message_ += zStrsafeW(zCheckSpecStringfy(context_.spec.get()));
    return true;
}

// ---- Changes of the user's

std::u16string line_of(Json *words, const StatusEntry *entry) {
    const bool is_new = zStatusEntryStatus(entry) == Z_KIND_UNTRACKED;
    const zwchar *key = is_new ? u"unversioned_s" : u"modified_s";
    return std::u16string(zI18nTextFormat(words, key, zStatusEntryPath(entry))) + u"\n";
}

// The first few by name.
std::u16string describe(const StatusList *changes) {
    constexpr uint64_t kNamed = 3;
    Json *words = zI18nNodeLookup(zI18nCurrentLang(), kForceRevertKey);
    if (!words) return kForceRevertKey;
    const uint64_t count = zStatusListLength(changes);
    std::u16string text = zI18nTextFormat(words, u"content_d", static_cast<int>(count));
    text += u"\n\n";
    for (uint64_t i = 0; i < std::min(count, kNamed); ++i)
        text += line_of(words, zStatusListEntry(changes, i));
    if (count > kNamed) text += u"...\n";
    text += u"\n";
    return text += zI18nTextLookup(words, count == 1 ? u"confirm_it" : u"confirm_them");
}

bool Reset::ask() {
    const IndexPtr index(zIndexHead(repository(), false));
    if (!index) return context_.tell(u"odb.eUnableToLockWorkingCopy");
    const PathSpecPtr paths(zPathSpecDup(context_.paths()));
    if (!paths || !zPathSpecSetOn(paths.get(), Z_SPEC_NO_IGNORED)) return false;
    const StatusListPtr changes(zStatusListBuild(index.get(), paths.get()));
    if (!changes || !zStatusListLength(changes.get())) return true;
    const int32_t answer = ask_force_revert(context_.notify, describe(changes.get()).c_str());
    if (answer == kRevertForce) return zCheckSpecSetOn(context_.spec.get(), Z_CHECK_FORCE);
    if (answer == kRevertSafe) return true;
    return context_.canceled = true, raise_canceled();
}

// ---- From the server

bool Reset::open_rights() {
    if (!update_rights(context_)) return false;
    rules_.reset(zAuthdbOpen(repository()));
    return rules_ || context_.tell(u"net.eFailedToFetchTrees");
}

// What the download tells is the reason; the message here is what it was wanted for.
bool Reset::fetch_matches(const Oid *id) {
    if (context_.asked(zRemoteDownloadMatches(context_.remote, id, Z_OBJECT_ANY, context_.paths())))
        return true;
    return context_.canceled ? false : context_.tell(u"net.eFailedToFetchTrees");
}

bool Reset::fetch_latest() {
    std::optional<Tip> tip;
    if (!fetch_references(context_, tip)) return false;
    if (!tip) return true;
    if (!fetch_matches(&tip->id) || !fetch_history(context_, Z_OBJECT_ANY) ||
        !track(context_, *tip))
        return false;
    latest_.reset(zBranchTree(context_.upstream.get()));
    return latest_ || context_.tell(u"odb.eFailedToResolveTree_s", context_.upstream_name());
}

bool Reset::fetch_target() {
    const Oid *wanted = zCheckSpecTarget(context_.spec.get());
    const Oid *latest = latest_ ? zBranchResolve(context_.upstream.get()) : nullptr;
    const Oid *id = wanted ? wanted : latest;
    if (!id)
        return raise_not_found(context_.upstream_name()), context_.tell(u"net.eFailedToFetchTrees");
    if (!(latest && zOidIsEqual(id, latest)) && !fetch_matches(id)) return false;
    target_.reset(zTreeByid(repository(), id));
    return target_ || context_.tell(u"odb.eFailedToResolveTree_s", id_text(*id).c_str());
}

// ---- Trees

// The branch's tree without what is selected; an empty one where it has none.
BuilderPtr Reset::head_without_selection(TreePtr &tree) {
    const zwchar *name = zBranchMerge(context_.head.get());
    const std::optional<bool> there = reference_there(repository(), name);
    if (there == true) tree.reset(zTreeByref(repository(), name));
    if (there != false && !tree) return nullptr;
    BuilderPtr builder(zTreeBuilderNew(repository(), tree.get()));
    if (!builder || !tree) return builder;
    const bool done = each_selected(tree.get(), context_.paths(), [&](const char *path, auto *) {
        return index_drop(builder->index.get(), path);
    });
    return done ? std::move(builder) : nullptr;
}

bool Reset::mix() {
    TreePtr head;
    const BuilderPtr builder = head_without_selection(head);
    if (!builder) return context_.tell(u"odb.eFailedToMergeRemoteChanages");
    const StrictOff partial;
    if (each_selected(target_.get(), context_.paths(), [&](const char *path, auto *entry) {
            return insert(builder.get(), path, entry);
        }))
        mixed_.reset(zIndexWriteTree(builder->index.get()));
    return mixed_ || context_.tell(u"odb.eFailedToBuildTree");
}

// Where the user breaks off, all goes back, and what has come of the files is a change of his.
bool Reset::check_out() {
    bool canceled = false;
    if (!zCheckSpecSetTarget(context_.spec.get(), zTreeId(mixed_.get()))) return false;
    const bool done =
        zev::check_out(repository(), context_.spec.get(), nullptr, &canceled, &context_.stand);
    context_.canceled = canceled;
    if (done && canceled) raise_canceled();
    return done && !canceled;
}

// The server's files as far as the user may read them: what is hidden from him is in no tree of
// his, be it in the latest or in the target only.
TreePtr Reset::build_head() {
    TreePtr head;
    const BuilderPtr builder = head_without_selection(head);
    if (!builder) return context_.tell(u"odb.eFailedToMergeRemoteChanages"), nullptr;
    const StrictOff partial;
    const bool done =
        !latest_ ||
        each_selected(latest_.get(), context_.paths(), [&](const char *path, auto *entry) {
            return !zAuthdbEntryReadable(rules_.get(), to_wide(path).c_str()) ||
                   insert(builder.get(), path, entry);
        });
    TreePtr tree(done ? zIndexWriteTree(builder->index.get()) : nullptr);
    if (!tree) context_.tell(u"odb.eFailedToBuildTree");
    return tree;
}

// What only the target has is on the disk, and nobody's.
bool Reset::drop_unknown(Index *index, Tree *head) {
    return each_selected(target_.get(), context_.paths(), [&](const char *path, auto *) {
        git::Entry known;
        const bool is_there = !git_tree_entry_bypath(out(known), head->handle.get(), path);
        if (is_there && git_tree_entry_type(known.get()) != GIT_OBJECT_TREE) return true;
        return !git_index_get_bypath(index->handle.get(), path, 0) || index_drop(index, path);
    });
}

bool Reset::commit_head() {
    const TreePtr tree = build_head();
    if (!tree) return false;
    const IndexPtr index = index_of_holder(repository());
    if (!index) return context_.tell(u"odb.eUnableToOpenIndex");
    const auto save = [&] {
        return index_stands(index.get()) && drop_unknown(index.get(), tree.get()) &&
               (!index->dirty || index_write_synced(index.get()));
    };
    const auto expire = [&](const Oid &id) {
        context_.stand = id;
        return expire_locks(context_.transaction.get());
    };
    const CommitPtr made(
        commit_create(u"HEAD", u"remote", message_.c_str(), tree.get(), save, {}, expire));
    if (!made) return context_.tell(u"odb.eFailedToWriteCommit");
    index_committed(index.get(), zCommitId(made.get()));
    const KeptFailure kept;
    note_agreed(repository(), context_.head.get(), *zCommitId(made.get()));
    if (context_.is_history_known) note_server(repository(), context_.head.get(), context_.tip);
    return true;
}

// What was never sent is asked about as any change of the user's; what the server lost shows when
// its branch is here.
bool run(Reset &reset, const CheckSpec *spec) try {
    return reset.prepare(spec) && verify(reset.context()) &&
           lay_ground(reset.context(), Losses::are_meant) && reset.ask() && reset.open_rights() &&
           reset.fetch_latest() && lay_ground(reset.context(), Losses::count) &&
           reset.fetch_target() && reset.mix() && reset.check_out() && reset.commit_head();
} catch (...) {
    return fail_thrown();
}

} // namespace

bool zRemoteReset(Remote *remote, CheckSpec *spec) try {
    if (!remote) return fail_args();
    Reset reset(remote, spec ? zCheckSpecNotify(spec) : nullptr);
    const UpdateContext &context = reset.context();
    zNotifyStart(context.notify, word(u"action.sCommand"), word(u"action.sRevertTo_s"),
                 zCheckSpecStringfy(spec));
    const bool done = run(reset, spec);
    tell_end(context.notify, done, context.canceled);
    if (!done)
        roll_back(context.repository, context.transaction.get(), context.head.get(),
                  context.upstream.get(), context.stand);
    return done;
} catch (...) {
    return fail_thrown();
}
