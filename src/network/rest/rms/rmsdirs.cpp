// The directories of a project: each is a `.gitkeep` in the tree of a branch, and each change one
// commit on it. What holds: nothing that is there is pushed out or written over, a commit that
// another server made in between is not lost, what had a rule has it by its new name, and a file
// that moves is what it was, a link or a program, too.
//
// The keep-file is a text of the stream encoding: four bytes of length, then the text.
#include "network/rest/repos/content.hpp"
#include "network/rest/rms/carried_rules.hpp"
#include "network/rest/rms/rms.hpp"

#include "common/error_class.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/object.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/work/gitkeep.hpp"
#include "objects/work/treebuilder.hpp"
#include "zev/lang.h"
#include "zev/object.h"
#include "zev/odb.h"
#include "zev/oid.h"
#include "zev/reference.h"
#include "zev/str.h"
#include "zev/stream.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zev::rest {

namespace {

using PathList = Owned<Vector, zPathListFree>;

// ---- A branch, and the commit that is to follow on it

// The branch's commit, none before the first.
std::optional<Oid> tip_of(Repository *repository, const zwchar *name) {
    const Owned<Reference, zReferenceFree> reference(zReferenceDwim(repository, name));
    const Oid *id = reference ? zReferenceResolve(reference.get()) : nullptr;
    return id ? std::optional(*id) : std::nullopt;
}

struct Branch {
    const AuthTable &auth;
    Repository *repository;
    const zwchar *author;
    std::u16string name{}; // in full, or HEAD
    std::optional<Oid> tip{};
    TreePtr tree{}; // null before the first commit
    Owned<TreeBuilder, zTreeBuilderFree> builder{};
    bool rights_failed = false; // the module couldn't do its part

    bool open(const zwchar *reference);
    bool find(const zwchar *reference);
    bool read_tree();
    bool commit(const zwchar *key);
};

// Only branches move here: the directory of a repository holds more than references, and a name
// from outside must not make or move any of that.
bool Branch::find(const zwchar *reference) {
    const Owned<Reference, zReferenceFree> found(zReferenceDwim(repository, reference));
    name = found ? zStrsafeW(zReferenceName(found.get())) : reference;
    if (name.starts_with(u"refs/heads/")) return true;
    return !found && name == u"HEAD" ? true : raise_args(reference);
}

bool Branch::open(const zwchar *reference) {
    if (!find(reference)) return false;
    tip = tip_of(repository, name.c_str());
    if (!tip && zErrorClass() != error_class::kNotFound) return false;
    if (!tip && !zRepositoryHeadUnborn(repository)) return raise_not_found(reference);
    return read_tree() || fail_lost();
}

bool Branch::read_tree() {
    if (tip) tree.reset(zTreeByid(repository, &*tip));
    if (tip && !tree) return false;
    builder.reset(zTreeBuilderNew(repository, tree.get()));
    return builder != nullptr;
}

// The commit would take back what came to the branch since its tree was read.
bool Branch::commit(const zwchar *key) {
    const TreePtr made(zTreeBuilderWrite(builder.get(), repository));
    const zwchar *message = zI18nTextLookup(zI18nCurrentLang(), key);
    if (!made || !message) return false;
    const auto is_unmoved = [this] {
        const std::optional<Oid> now = tip_of(repository, name.c_str());
        const bool same = tip && now ? zOidIsEqual(&*tip, &*now) : !tip && !now;
        return same ? true : raise_exists(name);
    };
    return commit_patiently([&] {
               return CommitPtr(
                   commit_create(name.c_str(), author, message, made.get(), is_unmoved));
           }) != nullptr;
}

// ---- Paths

std::u16string below(std::u16string_view directory, std::u16string_view name) {
    return std::u16string(directory).append(u"/").append(name);
}

// What is there may be longer, and can be removed.
bool can_be_made(const std::u16string &path) {
    const std::string keep = to_utf8(below(path, kKeepFileWide));
    return check_path(keep) && (copy_can_hold(keep) || raise_args(path));
}

// The entry of one directory that has a name, else one that has it in another case.
const git_tree_entry *find_entry(const git_tree *tree, const std::u16string &name) {
    if (const git_tree_entry *entry = git_tree_entry_byname(tree, to_utf8(name).c_str()))
        return entry;
    for (size_t i = 0; i < git_tree_entrycount(tree); ++i) {
        const git_tree_entry *entry = git_tree_entry_byindex(tree, i);
        if (zStrcasesameW(to_wide(git_tree_entry_name(entry)).c_str(), name.c_str())) return entry;
    }
    return nullptr;
}

// Whether nothing stands at a path, no file in the place of a directory above it, and no directory
// that differs from one above it in case alone, which most working copies couldn't hold beside it.
bool is_free(const ::Tree *tree, std::u16string_view path) {
    git::Tree directory;
    for (const git_tree *at = tree ? tree->handle.get() : nullptr; at; at = directory.get()) {
        const size_t slash = path.find(u'/');
        const std::u16string name(path.substr(0, slash));
        const git_tree_entry *entry = find_entry(at, name);
        if (!entry) break;
        if (slash == path.npos || git_tree_entry_type(entry) != GIT_OBJECT_TREE ||
            to_wide(git_tree_entry_name(entry)) != name)
            return raise_exists(std::u16string(path));
        git::Tree next;
        const int code =
            git_tree_lookup(out(next), tree->owner->handle.get(), git_tree_entry_id(entry));
        if (code < 0) return fail_git(code);
        directory = std::move(next);
        path.remove_prefix(slash + 1);
    }
    return true;
}

// ---- The changes

bool write_keep(Repository *repository, Oid *id) {
    const std::u16string text = to_wide(kKeepText);
    const Owned<Odb, zOdbFree> odb(zOdbOpen(repository));
    const Owned<Stream, zStreamFree> stream(zMemStream(0, 0));
    if (!odb || !stream || !zStreamWrStringW(stream.get(), text.c_str())) return false;
    const uint64_t size = zStreamSize(stream.get());
    return zStreamRewind(stream.get()) &&
           zOdbWrite(id, odb.get(), Z_OBJECT_BLOB, size, stream.get());
}

bool create(Branch &branch, Json *args) {
    const std::u16string path = text_of(args, u"path");
    const std::u16string keep = below(path, kKeepFileWide);
    Oid id;
    return can_be_made(path) && branch.open(text_of(args, u"ref")) &&
           is_free(branch.tree.get(), keep) && write_keep(branch.repository, &id) &&
           zTreeBuilderInsert(branch.builder.get(), keep.c_str(), &id) &&
           branch.commit(u"admin.sLogCreateDirectory");
}

// Removing what isn't there would make a commit that says it was.
bool has_directory(const ::Tree *tree, const std::u16string &path) {
    git_tree_entry *found = nullptr;
    const int code = tree ? git_tree_entry_bypath(&found, tree->handle.get(), to_utf8(path).c_str())
                          : GIT_ENOTFOUND;
    const Owned<git_tree_entry, git_tree_entry_free> entry(found);
    if (code < 0) return code == GIT_ENOTFOUND ? raise_not_found(path) : fail_git(code);
    return git_tree_entry_type(found) == GIT_OBJECT_TREE ? true : raise_not_found(path);
}

bool remove(Branch &branch, Json *args) {
    const std::u16string path = text_of(args, u"path");
    return check_path(to_utf8(path)) && branch.open(text_of(args, u"ref")) &&
           has_directory(branch.tree.get(), path) &&
           zTreeBuilderRmdir(branch.builder.get(), path.c_str()) &&
           branch.commit(u"admin.sLogDeleteDirectory");
}

// Where a directory goes: beside its own place. In another one it would be under other rules.
std::u16string renamed(const std::u16string &path, const std::u16string &newname) {
    const size_t slash = path.rfind(u'/');
    return slash == path.npos ? newname : below(path.substr(0, slash), newname);
}
bool is_name(const std::u16string &text) {
    return text.find(u'/') == text.npos || raise_args(text);
}

// A directory may be written in another case. On itself it would be removed.
bool can_become(const Branch &branch, const std::u16string &path, const std::u16string &target) {
    if (!zStrcasesameW(path.c_str(), target.c_str())) return is_free(branch.tree.get(), target);
    const Owned<TreeEntry, zTreeEntryFree> entry(
        zTreeEntryBypath(branch.tree.get(), target.c_str()));
    return entry ? raise_exists(target) : true;
}

// A file on its way to its new path.
struct Moved {
    std::string path;
    git_oid id;
    git_filemode_t mode;
};

// Old trees have other bits of a file's mode, which nothing takes any more.
git_filemode_t kept_mode(uint32_t mode) {
    if ((mode & S_IFMT) != S_IFREG) return static_cast<git_filemode_t>(mode);
    return mode & S_IXUSR ? GIT_FILEMODE_BLOB_EXECUTABLE : GIT_FILEMODE_BLOB;
}

// All leave before one comes: on its way into another case a directory would be its own twin. Only
// what is spelled as the directory goes along: a project from elsewhere may have a twin beside it.
bool move_all(Branch &branch, const std::u16string &path, const std::u16string &target) {
    git_index *index = branch.builder->index->handle.get();
    const std::string from = to_utf8(path), prefix = from + "/", to = to_utf8(target);
    std::vector<Moved> moved;
    size_t at = 0;
    if (git_index_find_prefix(&at, index, prefix.c_str()) < 0) return raise_not_found(path);
    while (const git_index_entry *entry = git_index_get_byindex(index, at++)) {
        const std::string_view old = entry->path;
        if (!old.starts_with(prefix)) break;
        std::string made = to + std::string(old.substr(from.size()));
        if (to_wide(made).size() >= Z_PATH_MAX) return raise_args(made);
        moved.push_back({std::move(made), entry->id, kept_mode(entry->mode)});
    }
    return zTreeBuilderRmdir(branch.builder.get(), path.c_str()) &&
           std::ranges::all_of(moved, [&](const Moved &file) {
               return builder_insert(branch.builder.get(), file.path, file.id, file.mode);
           });
}

bool rename(Branch &branch, Json *args) {
    const std::u16string path = text_of(args, u"path"), name = text_of(args, u"newname");
    const std::u16string target = renamed(path, name);
    CarriedRules rules(branch.auth, branch.repository);
    const bool moved = check_path(to_utf8(path)) && is_name(name) && can_be_made(target) &&
                       branch.open(text_of(args, u"ref")) &&
                       (branch.tree || raise_not_found(path)) && can_become(branch, path, target) &&
                       move_all(branch, path, target) && rules.carry(path, target);
    if (moved && branch.commit(u"admin.sLogRenameDirectory")) return true;
    branch.rights_failed = rules.has_failed();
    rules.take_back();
    return false;
}

// Whoever asks is the author.
HttpResponse *change(Call &call, Json *args, bool (*make)(Branch &branch, Json *args)) {
    const zwchar *user = zHttpRequestUser(call.request);
    Branch branch{auth_of(call), call.repository.get(), user && *user ? user : u"admin"};
    raise_args(); // what is wrong with the arguments isn't always raised
    if (make(branch, args)) return answer_status(Z_AUTH_DONE);
    if (branch.rights_failed)
        return log_raised(kError, {}, kFacilitySrv), answer_status(Z_AUTH_STORE_FAILED);
    return refuse_absent(call, {400, u"srv.eBadRequest", nullptr, u"srv.eInternalError"});
}

// Whether a name is that of the branch which the first commit will begin. Any other one that has no
// tree is a mistake, or can't be read.
bool is_unborn(Repository *repository, std::u16string_view name) {
    if (git_repository_head_unborn(repository->handle.get()) != 1) return false;
    const Owned<Reference, zReferenceFree> head(zReferenceLookup(repository, u"HEAD"));
    const zwchar *target = head ? zReferenceSymbolic(head.get()) : nullptr;
    const std::u16string_view branch = zStrsafeW(target);
    if (name == u"HEAD" || name == branch) return true;
    return !branch.empty() && (branch == u"refs/" + std::u16string(name) ||
                               branch == u"refs/heads/" + std::u16string(name));
}

} // namespace

HttpResponse *list_directories(Call &call, Json *args) {
    Repository *repository = call.repository.get();
    const zwchar *name = text_of(args, u"ref");
    const TreePtr tree(zTreeByref(repository, name));
    if (!tree) return answer_status(is_unborn(repository, name) ? Z_AUTH_DONE : Z_AUTH_NO_ANSWER);
    const PathSpecPtr spec(zPathSpecNew(std::u16string(u"*").append(kKeepFileWide).c_str(), 0));
    const PathList files(spec ? zTreeMatch(tree.get(), spec.get()) : nullptr);
    Tree result(zJsonNew(Z_JSON_ARRAY));
    if (!files || !result) return nullptr;
    for (uint64_t i = 0; i < zPathListLength(files.get()); ++i) {
        const std::u16string path = zPathListEntry(files.get(), i);
        const size_t slash = path.rfind(u'/');
        if (slash == path.npos) continue; // the project itself
        Tree name(zJsonNewString(path.substr(0, slash).c_str()));
        if (!name || !zJsonArrayPush(result.get(), name.get())) return nullptr;
        static_cast<void>(name.release());
    }
    if (!zJsonArraySize(result.get())) result.reset();
    return answer_status(Z_AUTH_DONE, std::move(result));
}

HttpResponse *create_directory(Call &call, Json *args) { return change(call, args, create); }
HttpResponse *delete_directory(Call &call, Json *args) { return change(call, args, remove); }
HttpResponse *rename_directory(Call &call, Json *args) { return change(call, args, rename); }

} // namespace zev::rest
