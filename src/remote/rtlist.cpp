// The list of updates: what differs between the branch's tree and that of the server's branch, as
// far as the user may read it. It is kept, whole, so that the next one with the same two trees,
// whatever it selects, compares nothing:
//
//   tmp/updates.json in the Git directory, JSON text, without blanks
//     diff   array of changes, see objects/history/revision_json.cpp
//     head   object
//       our    string   id of the branch's tree, 40 hexadecimal digits; all zero for none. Of a
//                       branch that has what the server has not: of its ground (standing.hpp)
//       their  string   the same of the server's branch
//
// A file that isn't this, that holds a path which no tree may have, or that is of other trees, is
// made anew.
#include "remote/changes.hpp"
#include "remote/update_context.hpp"

#include "common/errno.hpp"
#include "objects/history/revision.hpp"
#include "objects/store/tree_extent.hpp"
#include "objects/work/file_mode.hpp"
#include "system/os.hpp"
#include "zev/object.h"
#include "zev/path.h"

using namespace zev;

namespace {

constexpr const zwchar *kDirectory = u"tmp";
constexpr const zwchar *kFile = u"updates.json";

class UpdateList {
  public:
    explicit UpdateList(UpdateContext &context, bool selects)
        : context_(context), paths_(selects ? context.paths() : nullptr) {}

    DiffListPtr make();

  private:
    bool read_tree(TreePtr &tree, const Branch *branch);
    bool find_ground();
    bool is_bounded() const;
    DiffListPtr compute();
    DiffListPtr read_kept();
    DiffListPtr compare();
    void keep(const DiffList *list);
    bool is_of_our_trees(Json *file) const;
    DiffListPtr readable(const DiffList *list);

    UpdateContext &context_;
    PathSpec *paths_; // null for all
    TreePtr our_, their_;
};

git_oid id_of(const Tree *tree) { return tree ? *git_tree_id(tree->handle.get()) : git_oid{}; }

// ---- The file

std::u16string kept_in(Repository *repository, const zwchar *name) {
    zwchar path[Z_PATH_MAX];
    if (!zPathBuild(path, zRepositoryPath(repository), kDirectory, name, nullptr)) return {};
    return path;
}

JsonGuard read_file(const std::u16string &path) {
    JsonBounds bounds{limits::answer_bytes, limits::answer_nodes};
    const StreamPtr stream(path.empty() ? nullptr : zFileStream(path.c_str(), u"rb"));
    return JsonGuard(stream ? json_read_bounded(stream.get(), bounds) : nullptr);
}

bool is_id(Json *file, const zwchar *path, const git_oid &id) {
    Oid found;
    const Json *node = json_find(file, path);
    return node && read_id(&found, node) && git_oid_equal(git::oid(&found), &id);
}

bool UpdateList::is_of_our_trees(Json *file) const {
    return is_id(file, u"head.their", id_of(their_.get())) &&
           is_id(file, u"head.our", id_of(our_.get()));
}

// Whatever is wrong with it is no failure.
DiffListPtr UpdateList::read_kept() {
    const KeptFailure kept;
    const JsonGuard file = read_file(kept_in(context_.repository, kFile));
    if (!file || !is_of_our_trees(file.get())) return nullptr;
    return changes_from_json(json_find(file.get(), u"diff"));
}

void UpdateList::keep(const DiffList *list) {
    const KeptFailure kept;
    const git_oid our = id_of(our_.get()), their = id_of(their_.get());
    const JsonGuard file(zJsonNewObject(u"diff", diff_list_to_json(list).release(), u"head",
                                        zJsonNewObject(u"our", zJsonNewId(git::oid(&our)), u"their",
                                                       zJsonNewId(git::oid(&their)), nullptr),
                                        nullptr));
    uint64_t length = 0;
    const Narrow text = file ? json_utf8(file.get(), &length) : nullptr;
    const std::u16string path = kept_in(context_.repository, kFile);
    if (!text || path.empty()) return;
    os::make_dirs(kept_in(context_.repository, nullptr).c_str());
    if (!os::replace_file(path.c_str(), text.get(), length)) fail_errno(path), log_raised(kWarning);
}

// ---- The list

// A branch that is not born has no tree. One whose tree can't be read, since a refresh broke off,
// has one all the same: it must not pass for a branch that has lost all its files.
bool UpdateList::read_tree(TreePtr &tree, const Branch *branch) {
    const zwchar *name = zBranchMerge(branch);
    git::Reference found;
    const int code =
        git_reference_lookup(out(found), context_.repository->handle.get(), to_utf8(name).c_str());
    if (code == GIT_ENOTFOUND) return true;
    tree.reset(zBranchTree(branch));
    return tree || context_.tell(u"odb.eFailedToResolveTree_s", name);
}

// What a refresh has refused is here all the same, and tracked.
bool UpdateList::is_bounded() const {
    git_tree *our = our_ ? our_->handle.get() : nullptr;
    git_tree *their = their_ ? their_->handle.get() : nullptr;
    return !their || has_bounded_change(our, their) ||
           has_bounded_extent(git_tree_owner(their), git_tree_id(their));
}

// A part of the trees may be here where the whole is not.
DiffListPtr UpdateList::compare() {
    DiffListPtr whole(zDiffTreeToTree(our_.get(), their_.get(), nullptr, nullptr));
    if (whole) keep(whole.get());
    return whole;
}

DiffListPtr UpdateList::compute() {
    if (!our_ && !their_) {
        if (spec_options(paths_) & Z_SPEC_MUST_MATCH) return raise_not_found(), nullptr;
        return diff_list_new(0);
    }
    DiffListPtr list = read_kept();
    if (!list && !is_bounded()) return raise_range(), nullptr;
    if (!list) list = compare();
    if (!list) return DiffListPtr(zDiffTreeToTree(our_.get(), their_.get(), paths_, nullptr));
    if (!paths_) return list;
    DiffListPtr selected = diff_list_filtered(list.get(), paths_);
    if (!selected) raise_not_found();
    return selected;
}

DiffListPtr UpdateList::readable(const DiffList *list) {
    const AuthdbPtr rules(zAuthdbOpen(context_.repository));
    if (!rules) return context_.tell(u"odb.eFailedToOpenAuthz"), nullptr;
    DiffListPtr left = diff_list_new(zDiffListLength(list));
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        const DiffEntry *entry = zDiffListEntry(list, i);
        if (zAuthdbEntryReadable(rules.get(), zDiffEntryNewPath(entry)))
            diff_list_append(left.get(), diff_entry_dup(*entry));
    }
    return left;
}

// What the server has not is none of what an update would take away.
bool UpdateList::find_ground() {
    Standing standing;
    if (!look_at_standing(context_.repository, context_.head.get(), context_.upstream.get(),
                          context_.tip, Losses::count, standing))
        return context_.tell(u"odb.eFailedToResolveTree_s", zBranchName(context_.head.get()));
    if (standing.is_plain()) return true;
    tell_standing(context_, standing);
    our_ = std::move(standing.ground);
    return true;
}

DiffListPtr UpdateList::make() {
    if (!read_tree(our_, context_.head.get()) || !read_tree(their_, context_.upstream.get()) ||
        !find_ground())
        return nullptr;
    const DiffListPtr list = compute();
    if (!list) return notify_raised(context_.notify), nullptr;
    return readable(list.get());
}

// The rights as an update would find them, or the list would hide what that brings. Where the
// server doesn't tell them, those that are known count. False for a break.
bool renew_rights(UpdateContext &context) {
    const Quiet quiet(context.notify);
    {
        const KeptFailure kept;
        if (context.asked(zRemoteUpdateAuth(context.remote, &quiet)) || !context.canceled)
            return true;
    }
    return raise_canceled();
}

// What was fetched is as good as ever, whatever fails behind it: nothing goes back.
DiffListPtr run(UpdateContext &context, PathSpec *paths, bool refresh) try {
    const Owned<CheckSpec, zCheckSpecFree> wanted(zCheckSpecNew());
    if (!wanted || (paths && !zCheckSpecSetPaths(wanted.get(), paths)))
        return context.tell(u"odb.eUnableToResolvePathspec"), nullptr;
    if (!prepare(context, wanted.get())) return nullptr;
    notify_start(context.notify, u"action.sCheckForUpdates");
    if (refresh && !(verify(context) && renew_rights(context) && fetch(context, Z_OBJECT_TREE)))
        return nullptr;
    return UpdateList(context, paths).make();
} catch (...) {
    return fail_thrown(), nullptr;
}

} // namespace

DiffList *zRemoteListUpdates(Remote *remote, PathSpec *paths, bool refresh) try {
    if (!remote) return fail_args();
    UpdateContext context{remote, paths ? paths->notify : nullptr};
    DiffListPtr list = run(context, paths, refresh);
    tell_end(context.notify, list != nullptr, false);
    return list.release();
} catch (...) {
    return fail_thrown();
}
