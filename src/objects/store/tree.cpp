// Trees and their entries: looking up, walking, and finding what a spec selects. Entries are
// copies; only directories that a walk needs are read, since a client may hold a part of the store.
#include "objects/store/tree.hpp"

#include "objects/store/object.hpp"
#include "objects/store/pathspec.hpp"
#include "zev/object.h"
#include "zev/tree.h"
#include "zev/vector.h"

#include <new>
#include <string>

using namespace zev;

namespace {

uint32_t known_mode(git_filemode_t mode) {
    switch (mode) {
    case GIT_FILEMODE_BLOB:
    case GIT_FILEMODE_BLOB_EXECUTABLE:
    case GIT_FILEMODE_TREE:
    case GIT_FILEMODE_LINK:
    case GIT_FILEMODE_COMMIT:
        return mode;
    default:
        return 0;
    }
}

// A new entry of what a look-up in a tree found.
TreeEntry *found(const git_tree_entry *entry, Here at = {}) {
    if (!entry) return logged(raise_not_found(), at);
    return zTreeEntryNew(entry);
}

// git_tree_walk in wide text. A directory's path is converted once for all its entries.
struct Walk {
    TreeCallback callback;
    void *context;
    TreeEntry entry{};
    std::string directory{};
    std::u16string wide{};

    int visit(const char *root, const git_tree_entry *handle) {
        if (directory != root) {
            directory = root;
            wide = to_wide(directory);
        }
        if (!zTreeEntrySet(&entry, handle)) return GIT_ERROR;
        return callback(wide.c_str(), &entry, context);
    }

    static int step(const char *root, const git_tree_entry *handle, void *self) try {
        return static_cast<Walk *>(self)->visit(root, handle);
    } catch (...) {
        return fail_thrown(), GIT_ERROR;
    }
};

// The files of a tree, at any depth, that a spec selects.
struct Match {
    Matcher &matcher;
    Vector *list; // takes the paths; without one the first ends the walk
    bool any = false;
    std::string path{};

    int visit(const char *root, const git_tree_entry *entry) {
        path.assign(root).append(git_tree_entry_name(entry));
        if (git_tree_entry_type(entry) == GIT_OBJECT_TREE)
            return matcher.may_match_below(path) ? 0 : 1; // 1 leaves it out
        if (!matcher.matches(path)) return 0;
        any = true;
        if (!list) return GIT_EUSER;
        return zVectorPush(list, to_wide(path).c_str()) ? 0 : GIT_ERROR;
    }

    static int step(const char *root, const git_tree_entry *entry, void *self) try {
        return static_cast<Match *>(self)->visit(root, entry);
    } catch (...) {
        return fail_thrown(), GIT_ERROR;
    }

    bool run(const git_tree *tree) {
        int code = git_tree_walk(tree, GIT_TREEWALK_PRE, step, this);
        return code < 0 && !(any && !list) ? fail_git(code) : true;
    }
};

} // namespace

Tree *zTreeNew(void *handle, Repository *repository) {
    if (!handle || !repository) return fail_args();
    auto *tree = new (std::nothrow) Tree{git::Tree(), repository};
    if (!tree) return fail_memory();
    tree->handle.reset(static_cast<git_tree *>(handle));
    return tree;
}

Tree *zTreeByid(Repository *repository, const Oid *id) {
    return by_peeled_id<Tree>(repository, id);
}
Tree *zTreeByprefix(Repository *repository, const Oid *prefix, uint64_t length) {
    return by_prefix<Tree>(repository, prefix, length);
}
Tree *zTreeBypath(Object *object, const zwchar *path) { return by_path<Tree>(object, path); }
Tree *zTreeByref(Repository *repository, const zwchar *name) {
    return by_reference<Tree>(repository, name);
}
Tree *zTreeHead(Repository *repository) { return by_reference<Tree>(repository, u"HEAD"); }
Tree *zTreePeel(Object *object) { return peel<Tree>(object); }
void zTreeFree(Tree *tree) { delete tree; }

const Oid *zTreeId(const Tree *tree) {
    return tree ? git::oid(git_tree_id(tree->handle.get())) : fail_args();
}
Repository *zTreeOwner(const Tree *tree) { return tree ? tree->owner : fail_args(); }

Vector *zTreeMatch(Tree *tree, PathSpec *spec) try {
    if (!tree || !spec) return fail_args();
    auto list = Owned<Vector, zVectorFree>(zVectorNewPrim(Z_TYPE_STRINGW, 0));
    if (!list) return nullptr;
    Match match{spec_matcher(spec), list.get()};
    if (!match.run(tree->handle.get())) return nullptr;
    if (!match.any && spec->options & Z_SPEC_MUST_MATCH) return raise_not_found();
    return list.release();
} catch (...) {
    return fail_thrown();
}

bool zTreeExists(Tree *tree, PathSpec *spec) try {
    if (!tree || !spec) return fail_args();
    Match match{spec_matcher(spec), nullptr};
    return match.run(tree->handle.get()) && match.any;
} catch (...) {
    return fail_thrown();
}

bool zTreeWalk(Tree *tree, TreeCallback callback, void *context) {
    if (!tree || !callback) return fail_args();
    Walk walk{callback, context};
    int code = git_tree_walk(tree->handle.get(), GIT_TREEWALK_PRE, Walk::step, &walk);
    return code < 0 ? fail_git(code) : true;
}

TreeEntry *zTreeEntryNew(const void *handle) {
    if (!handle) return fail_args();
    auto entry = Owned<TreeEntry, zTreeEntryFree>(new (std::nothrow) TreeEntry{});
    if (!entry) return fail_memory();
    return zTreeEntrySet(entry.get(), handle) ? entry.release() : nullptr;
}

bool zTreeEntrySet(TreeEntry *entry, const void *handle) {
    if (!entry || !handle) return fail_args();
    auto *from = static_cast<const git_tree_entry *>(handle);
    std::string_view name = git_tree_entry_name(from);
    Wide text(wide_dup(name.data(), name.size()));
    if (!text) return fail_memory();
    entry->name = std::move(text);
    entry->id = *git::oid(git_tree_entry_id(from));
    entry->type = git_tree_entry_type(from);
    entry->mode = known_mode(git_tree_entry_filemode_raw(from));
    return true;
}

uint64_t zTreeEntryCount(const Tree *tree) {
    return tree ? git_tree_entrycount(tree->handle.get()) : (fail_args(), uint64_t{0});
}

TreeEntry *zTreeEntryByindex(Tree *tree, uint64_t index) {
    if (!tree) return fail_args();
    return found(git_tree_entry_byindex(tree->handle.get(), index));
}

TreeEntry *zTreeEntryByname(Tree *tree, const zwchar *name) try {
    if (!tree || !name) return fail_args();
    return found(git_tree_entry_byname(tree->handle.get(), to_utf8(name).c_str()));
} catch (...) {
    return fail_thrown();
}

TreeEntry *zTreeEntryByid(Tree *tree, const Oid *id) {
    if (!tree || !id) return fail_args();
    return found(git_tree_entry_byid(tree->handle.get(), git::oid(id)));
}

TreeEntry *zTreeEntryBypath(Tree *tree, const zwchar *path) try {
    if (!tree || !path) return fail_args();
    git::Entry entry;
    int code = git_tree_entry_bypath(out(entry), tree->handle.get(), to_utf8(path).c_str());
    if (code < 0) return fail_git(code);
    return zTreeEntryNew(entry.get());
} catch (...) {
    return fail_thrown();
}

void zTreeEntryFree(TreeEntry *entry) { delete entry; }
const zwchar *zTreeEntryName(const TreeEntry *entry) {
    return entry ? entry->name.get() : fail_args();
}
const Oid *zTreeEntryId(const TreeEntry *entry) { return entry ? &entry->id : fail_args(); }
int32_t zTreeEntryType(const TreeEntry *entry) {
    return entry ? entry->type : (fail_args(), int32_t{Z_OBJECT_BAD});
}
uint32_t zTreeEntryMode(const TreeEntry *entry) {
    return entry ? entry->mode : (fail_args(), uint32_t{0});
}

Object *zTreeEntryToObject(const TreeEntry *entry, Repository *repository) {
    if (!entry) return fail_args();
    return by_id<Object>(repository, &entry->id, static_cast<git_object_t>(entry->type));
}
