// A tree on its way together, cut down for one reader. The builder's family lies below the rules:
// this function of it stands here, so that it need not reach up to them.
#include "common/error_class.hpp"
#include "objects/work/treebuilder.hpp"
#include "zev/authdb.h"
#include "zev/index.h"
#include "zev/pathspec.h"
#include "zev/tree.h"

using namespace zev;

namespace {

using PathListPtr = Owned<Vector, zPathListFree>;

} // namespace

bool zTreeBuilderFilter(TreeBuilder *builder, Authdb *authdb, PathSpec *spec) {
    if (!builder) return fail_args();
    if (!authdb || zAuthdbIsEmpty(authdb)) return true;
    const PathListPtr paths(zIndexMatch(builder->index.get(), spec));
    if (!paths) return zErrorClass() == error_class::kNotFound; // none: nothing to take out
    const uint64_t count = zPathListLength(paths.get());
    for (uint64_t n = 0; n < count; ++n) {
        const zwchar *path = zPathListEntry(paths.get(), n);
        if (!zAuthdbEntryReadable(authdb, path) && !zTreeBuilderRemove(builder, path)) return false;
    }
    return true;
}
