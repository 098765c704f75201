// Commit: the whole index, or head with what a spec selects, whatever else is staged.
#include "objects/index.hpp"

#include "common/utf.hpp"
#include "objects/commit.hpp"
#include "objects/notify.hpp"
#include "objects/status.hpp"
#include "objects/strict.hpp"
#include "system/errno.hpp"
#include "system/os.hpp"
#include "zev/commit.h"
#include "zev/repository.h"
#include "zev/tree.h"

#include <string>
#include <vector>

using namespace zev;

namespace {

using TreePtr = Owned<Tree, zTreeFree>;
using CommitPtr = Owned<Commit, zCommitFree>;

// A path that the commit changes, and how its file stood.
struct Change {
    std::string path;
    int32_t kind;
    bool staged; // the index already holds what the file holds
};

class PartialCommit {
  public:
    PartialCommit(Index *index, PathSpec *spec) : index_(index), spec_(spec), stager_(index) {}

    bool find_changes();
    bool drop_deleted();
    bool stage_changed();
    TreePtr build_tree();

  private:
    bool is_gone(const Change &change) const {
        return change.kind == Z_KIND_DELETED || change.kind == Z_KIND_MISSING;
    }
    TreePtr update_head();
    TreePtr rebuild();
    std::vector<git_tree_update> updates() const;

    Index *index_;
    PathSpec *spec_;
    Stager stager_;
    std::vector<Change> changes_;
};

bool is_staged(uint32_t word) {
    constexpr uint32_t kIndex = GIT_STATUS_INDEX_NEW | GIT_STATUS_INDEX_MODIFIED;
    return word != 0 && (word & ~kIndex) == 0;
}

// Renames count as what they are to a tree: one path goes, another comes.
bool PartialCommit::find_changes() {
    Owned<PathSpec, zPathSpecFree> wanted(zPathSpecDup(spec_));
    if (!wanted || !zPathSpecSetOn(wanted.get(),
                                   Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_RENAMED | Z_SPEC_NO_TYPECHANGE))
        return false;
    StatusScan scan(index_, wanted.get());
    if (scan.run())
        scan.each([&](const StatusItem &item) {
            changes_.push_back({item.path, item.kind, is_staged(item.word)});
            return 0;
        });
    if (!changes_.empty()) return true;
    zRaiseNotFound(u"%s", word(u"odb.eNoChangesToCommit"));
    return false;
}

bool PartialCommit::drop_deleted() {
    for (auto change = changes_.rbegin(); change != changes_.rend(); ++change)
        if (is_gone(*change) && !index_drop(index_, change->path.c_str())) return false;
    return true;
}

bool PartialCommit::stage_changed() {
    for (const Change &change : changes_) {
        if (is_gone(change)) continue;
        const bool known = change.kind == Z_KIND_ADDED || change.kind == Z_KIND_MODIFIED ||
                           change.kind == Z_KIND_IGNORED || change.kind == Z_KIND_UNTRACKED;
        if (!known) return zRaiseInvalidArgs(u"%hs", change.path.c_str()), false;
        if (!change.staged && !stage_named(index_, stager_, change.path.c_str())) return false;
    }
    return true;
}

std::vector<git_tree_update> PartialCommit::updates() const {
    std::vector<git_tree_update> updates;
    for (const Change &change : changes_) {
        git_tree_update update{};
        update.path = change.path.c_str();
        update.action = GIT_TREE_UPDATE_REMOVE;
        if (!is_gone(change)) {
            const auto *entry = git_index_get_bypath(index_->handle.get(), update.path, 0);
            if (!entry) continue; // a file of the same commit has taken its directory's name
            update.action = GIT_TREE_UPDATE_UPSERT;
            update.id = entry->id;
            update.filemode = static_cast<git_filemode_t>(entry->mode);
        }
        updates.push_back(update);
    }
    return updates;
}

// Head's tree with the changes: only directories on the way to a change are read and written.
// Null without a failure worth raising when a file stands where a directory was, or the like.
TreePtr PartialCommit::update_head() {
    if (zRepositoryHeadUnborn(index_->owner)) return nullptr;
    TreePtr head(zTreeHead(index_->owner));
    if (!head) return nullptr;
    auto changes = updates();
    std::erase_if(changes, [&](const git_tree_update &change) { // staged, then deleted
        git::Entry entry;
        return change.action == GIT_TREE_UPDATE_REMOVE &&
               git_tree_entry_bypath(out(entry), head->handle.get(), change.path) < 0;
    });
    git_oid id;
    StrictOff off;
    int code = git_tree_create_updated(&id, index_->owner->handle.get(), head->handle.get(),
                                       changes.size(), changes.data());
    return TreePtr(code < 0 ? nullptr : zTreeByid(index_->owner, git::oid(&id)));
}

// The same by an index of the whole tree.
TreePtr PartialCommit::rebuild() {
    IndexPtr whole(zIndexByref(index_->owner, nullptr));
    if (!whole) return nullptr;
    for (const Change &change : changes_)
        if (is_gone(change) && !index_drop(whole.get(), change.path.c_str())) return nullptr;
    for (const Change &change : changes_) {
        if (is_gone(change)) continue;
        const auto *entry = git_index_get_bypath(index_->handle.get(), change.path.c_str(), 0);
        if (entry && !index_enter(whole.get(), *entry)) return nullptr;
    }
    return TreePtr(zIndexWriteTree(whole.get()));
}

TreePtr PartialCommit::build_tree() {
    TreePtr tree = update_head();
    return tree ? std::move(tree) : rebuild();
}

// Reference first, then the index: until the reference moved, a failure leaves both as they were.
CommitPtr finish(Index *index, const zwchar *reference, const zwchar *author, const zwchar *message,
                 Tree *tree, bool writes) {
    CommitPtr commit(commit_create(reference, author, message, tree, false));
    if (!commit || (writes && !index_write(index))) return nullptr;
    const zwchar *path = zRepositoryPath(index->owner);
    if (!path || !os::sync_tree(path)) return CommitPtr(fail_errno(path));
    return commit;
}

} // namespace

Commit *zIndexCommit(Index *index, PathSpec *spec, const zwchar *reference, const zwchar *author,
                     const zwchar *message) try {
    if (!index || !author || !message) return fail_args();
    TreePtr tree;
    if (spec) {
        PartialCommit commit(index, spec);
        if (!commit.find_changes() || !commit.drop_deleted() || !commit.stage_changed())
            return nullptr;
        tree = commit.build_tree();
    } else {
        tree.reset(zIndexWriteTree(index));
    }
    if (!tree) return nullptr;
    // Writing the whole also keeps what the index has learned of its trees.
    const bool writes = !spec || index->dirty;
    return finish(index, reference, author, message, tree.get(), writes).release();
} catch (...) {
    return fail_thrown();
}
