// What a repository gives of the families above the store: its index, and a beginning made after
// another repository, the template: its keep-files as the first commit, and its rights.
#include "zev/commit.h"
#include "zev/file.h"
#include "zev/index.h"
#include "zev/lang.h"
#include "zev/object.h"
#include "zev/odb.h"
#include "zev/path.h"
#include "zev/pathspec.h"
#include "zev/repository.h"
#include "zev/stream.h"
#include "zev/tree.h"

#include "objects/store/object.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/work/gitkeep.hpp"

using namespace zev;

namespace {

bool copy_blob(Odb *from, Odb *to, const TreeEntry *entry, Oid *id) {
    auto stream = Owned<Stream, zStreamFree>(zMemStream(0, 0));
    const Oid *source = zTreeEntryId(entry);
    return stream && zOdbRead(from, source, stream.get()) && zStreamRewind(stream.get()) &&
           zOdbWrite(id, to, zTreeEntryType(entry), zOdbSize(from, source), stream.get());
}

// Takes the template's keep-files over; one that can't be copied is left out.
bool copy_skeleton(Tree *tree, Repository *from, Repository *to, TreeBuilder *builder) {
    auto source = Owned<Odb, zOdbFree>(zOdbOpen(from));
    auto target = Owned<Odb, zOdbFree>(zOdbOpen(to));
    const std::u16string keep_files = std::u16string(u"*").append(kKeepFileWide);
    auto spec = PathSpecPtr(zPathSpecNew(keep_files.c_str(), 0));
    if (!source || !target || !spec) return false;
    auto paths = Owned<Vector, zPathListFree>(zTreeMatch(tree, spec.get()));
    if (!paths) return false;
    for (uint64_t i = 0; i < zPathListLength(paths.get()); ++i) {
        const zwchar *path = zPathListEntry(paths.get(), i);
        auto entry = Owned<TreeEntry, zTreeEntryFree>(zTreeEntryBypath(tree, path));
        Oid id;
        if (entry && copy_blob(source.get(), target.get(), entry.get(), &id))
            zTreeBuilderInsert(builder, path, &id);
    }
    return true;
}

bool copy_rights(Repository *from, Repository *to) {
    zwchar source[Z_PATH_MAX], target[Z_PATH_MAX];
    return zPathBuild(source, zRepositoryPath(from), u"AUTHZ", nullptr) &&
           zPathBuild(target, zRepositoryPath(to), u"AUTHZ", nullptr) && zCopy(source, target);
}

} // namespace

Index *zRepositoryIndex(Repository *repository, bool lock) { return zIndexHead(repository, lock); }

bool zRepositoryInitFrom(Repository *repository, Repository *from) try {
    if (!repository || !from) return false;
    auto tree = TreePtr(zTreeHead(from));
    auto builder = Owned<TreeBuilder, zTreeBuilderFree>(zTreeBuilderNew(repository, nullptr));
    if (!tree || !builder) return false;
    if (!copy_skeleton(tree.get(), from, repository, builder.get())) return false;
    auto skeleton = TreePtr(zTreeBuilderWrite(builder.get(), repository));
    if (!skeleton) return false;
    const zwchar *message = zI18nTextLookup(zI18nCurrentLang(), u"admin.sLogCreateFromTemplate");
    zCommitFree(zCommitCreate(u"HEAD", u"admin", message, skeleton.get()));
    return copy_rights(from, repository);
} catch (...) {
    return fail_thrown();
}
